// How well the judge and simpler methods tell leaks from healthy growth, as Markdown. --help says
// how.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "leaks/life.h"
#include "leaks/methods.h"
#include "leaks/recorded.h"

namespace leaks {
namespace {

using judge::State;

// What became of one or more lives. Delays are counted in hours since the leak began.
struct Score {
  int healthy = 0, blamed = 0, suspected = 0;  // blamed: confirmed or urgent
  int leaking = 0, wrong = 0;                  // wrong: only something else was blamed
  int in48 = 0, in96 = 0;
  int early = 0, in_time = 0;  // limits reached after 2 h or more; urgent 30 minutes before
  int crowded = 0;             // two alerts within a day
  std::vector<double> delays{};

  int found() const { return static_cast<int>(delays.size()); }
  // Of all leaks: those that were never found count as the longest.
  double median() const {
    std::vector<double> sorted = delays;
    std::sort(sorted.begin(), sorted.end());
    const size_t half = static_cast<size_t>(leaking) / 2;
    return half < sorted.size() ? sorted[half] : HUGE_VAL;
  }
  void operator+=(const Score& other) {
    healthy += other.healthy, blamed += other.blamed, suspected += other.suspected;
    leaking += other.leaking, wrong += other.wrong, in48 += other.in48, in96 += other.in96;
    early += other.early, in_time += other.in_time, crowded += other.crowded;
    delays.insert(delays.end(), other.delays.begin(), other.delays.end());
  }
};

std::vector<Alarm> alarms_of(const Trace& trace, const MethodKind& kind) {
  const auto method = kind.make();
  std::vector<Alarm> alarms;
  judge::Sample sample{.pid = 1000, .start = 1, .name = "made"};
  sample.memory_limit_kb = trace.limits[0];
  sample.threads_limit = trace.limits[1];
  sample.open_files_limit = trace.limits[2];
  for (const Point& point : trace.points) {
    sample.time = point.time;
    sample.resident_kb = point.memory_kb;
    sample.swap_kb = point.swap_kb;
    sample.threads = point.threads;
    sample.open_files = point.open_files;
    method->take(sample, &alarms);
  }
  return alarms;
}

Score score_of(const Trace& trace, const MethodKind& kind, bool name_mistakes) {
  Score score;
  double found = HUGE_VAL, urgent = HUGE_VAL, last_alert = -HUGE_VAL;
  bool blamed = false, told = false;
  for (const Alarm& alarm : alarms_of(trace, kind)) {
    // What leaks in a recorded process is not written down.
    const bool right = trace.leaks && alarm.time >= trace.onset &&
                       (trace.interval == 0 || alarm.resource == trace.resource);
    score.suspected |= alarm.state == State::kSuspected;
    told &= alarm.state != State::kEnded || alarm.resource != trace.resource;
    if (alarm.state != State::kConfirmed && alarm.state != State::kUrgent) {
      continue;
    }
    if (!right && !blamed && name_mistakes) {
      std::fprintf(stderr, "%s: %s %s after %.1f h: %s\n", trace.kind.c_str(),
                   judge::resource_name(alarm.resource), judge::state_name(alarm.state),
                   alarm.time / kHour, judge::evidence_clause(alarm.evidence).c_str());
    }
    blamed |= !right;
    if (right) {
      found = std::min(found, alarm.time);
      urgent = alarm.state == State::kUrgent ? std::min(urgent, alarm.time) : urgent;
      score.crowded |= !told && alarm.time - last_alert < kDay;
      last_alert = told ? last_alert : alarm.time;
      told = true;
    }
  }
  score.healthy = !trace.leaks;
  score.leaking = trace.leaks;
  score.blamed = !trace.leaks && blamed;
  score.wrong = trace.leaks && blamed && found == HUGE_VAL;
  if (found != HUGE_VAL) {
    score.in48 = found - trace.onset <= 48 * kHour;
    score.in96 = found - trace.onset <= 96 * kHour;
    score.delays = {(found - trace.onset) / kHour};
  }
  score.early = trace.limit_at < HUGE_VAL && trace.limit_at - trace.onset >= 2 * kHour;
  score.in_time = score.early && urgent <= trace.limit_at - 30 * kMinute;
  return score;
}

double part(int some, int all) {
  return all > 0 ? static_cast<double>(some) / all : 0;
}

void print_methods(const std::vector<std::map<std::string, Score>>& scores) {
  std::printf(
      "| method | precision | recall 48 h | recall 96 h | median, h | healthy blamed | urgent in "
      "time | two alerts a day |\n|---|---|---|---|---|---|---|---|\n");
  for (size_t m = 0; m < scores.size(); ++m) {
    Score sum;
    for (const auto& [name, score] : scores[m]) {
      sum += score;
    }
    std::printf("| %s | %.3f | %.3f | %.3f | %.1f | %d of %d | %d of %d | %d |\n", kMethods[m].name,
                part(sum.found(), sum.found() + sum.blamed + sum.wrong),
                part(sum.in48, sum.leaking), part(sum.in96, sum.leaking), sum.median(), sum.blamed,
                sum.healthy, sum.in_time, sum.early, sum.crowded);
  }
}

void print_kinds(const std::vector<std::string>& order,
                 const std::map<std::string, Score>& scores) {
  std::printf("\n| healthy kind | processes | suspected | blamed |\n|---|---|---|---|\n");
  for (const std::string& name : order) {
    const Score& s = scores.at(name);
    if (s.healthy > 0) {
      std::printf("| %s | %d | %d | %d |\n", name.c_str(), s.healthy, s.suspected, s.blamed);
    }
  }
  std::printf(
      "\n| leaking kind | processes | found | within 48 h | median, h | urgent in time |\n"
      "|---|---|---|---|---|---|\n");
  for (const std::string& name : order) {
    const Score& s = scores.at(name);
    if (s.leaking > 0) {
      std::printf("| %s | %d | %d | %d | %.1f | %d of %d |\n", name.c_str(), s.leaking, s.found(),
                  s.in48, s.median(), s.in_time, s.early);
    }
  }
}

// Three healthy processes to two leaking ones, the kinds of either side in turn.
Trace made(const std::vector<Kind>& kinds, uint64_t seed, size_t i) {
  const bool leaking = i % 5 >= 3;
  std::vector<Kind> side;
  for (const Kind& kind : kinds) {
    if (kind.leaks == leaking) {
      side.push_back(kind);
    }
  }
  const size_t index = leaking ? i / 5 * 2 + i % 5 - 3 : i / 5 * 3 + i % 5;
  return see(side[index % side.size()], seed * 1000003 + i);
}

}  // namespace
}  // namespace leaks

int main(int argc, char** argv) {
  using namespace leaks;
  std::string source = "tuned";
  size_t processes = 2000;
  uint64_t seed = 1;
  double stretch = 100;
  bool all = false;
  bool mistakes = false;
  CLI::App app("Measures the judge, and with --all the simpler methods, on lives of processes");
  app.add_option("SOURCE", source,
                 "tuned or held: the kinds that the judge was tuned on; blind:\n"
                 "those that it was not; or a file that record.py wrote");
  app.add_option("--processes", processes, "How many lives to make");
  app.add_option("--seed", seed, "Other lives");
  app.add_option("--stretch", stretch, "How many times as long recorded times are made");
  app.add_flag("--all", all, "The simpler methods as well");
  app.add_flag("--mistakes", mistakes, "Name the judge's wrong alarms on standard error");
  CLI11_PARSE(app, argc, argv);

  std::vector<std::map<std::string, Score>> scores(all ? kMethods.size() : 1);
  std::vector<std::string> order;
  const auto add = [&](const Trace& trace) {
    for (size_t m = 0; m < scores.size(); ++m) {
      scores[m][trace.kind] += score_of(trace, kMethods[m], mistakes && m == 0);
    }
  };
  const std::map<std::string, const std::vector<Kind>*> sets = {
      {"tuned", &kTuned}, {"held", &kHeld}, {"blind", &kBlind}};
  if (const auto set = sets.find(source); set != sets.end()) {
    const std::vector<Kind>& kinds = *set->second;
    for (size_t i = 0; i < processes; ++i) {
      add(made(kinds, seed, i));
    }
    for (const Kind& kind : kinds) {
      order.push_back(kind.name);
      scores[0].try_emplace(kind.name);
    }
  } else {
    for (const Trace& trace : read_recorded(source, stretch)) {
      add(trace);
    }
    for (const auto& [name, score] : scores[0]) {
      order.push_back(name);
    }
  }
  print_methods(scores);
  print_kinds(order, scores[0]);
}
