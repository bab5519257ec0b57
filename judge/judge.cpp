#include "judge/judge.h"

#include <algorithm>
#include <cmath>
#include <utility>
#include <vector>

namespace judge {
namespace {

constexpr double kGap = 1200;   // s between samples of whatever process; more is a gap
constexpr double kLost = 1500;  // s watched without a sample of a process
constexpr double kSweep = 300;  // s watched between two searches for lost processes

double known(int64_t number) {
  return number < 0 ? HUGE_VAL : static_cast<double>(number);
}

int64_t memory_of(const Sample& sample) {
  return sample.resident_kb < 0 ? kUnknown
                                : sample.resident_kb + std::max(int64_t{0}, sample.swap_kb);
}

bool is_exec(int64_t before, int64_t now) {
  return before >= 0 && now >= 0 && (now > before + before / 2 || before > now + now / 2);
}

uint32_t clamp(int64_t level) {
  return static_cast<uint32_t>(std::min(level, int64_t{UINT32_MAX} - 1));
}

}  // namespace

// The process that the sample is about, after the end of another one that had its pid.
Judge::Process& Judge::find(const Sample& sample, int64_t memory_kb) {
  const auto [place, fresh] = processes_.try_emplace(sample.pid);
  Process& process = place->second;
  const bool reused = sample.start != process.start && sample.start >= 0 && process.start >= 0;
  if (fresh || reused || (sample.name != process.name && is_exec(process.memory_kb, memory_kb))) {
    end_all(sample.pid, process, sample.time);
    process = Process{};
    process.first = process.last = sample.time;
  }
  if (sample.name != process.name) {
    process.name = sample.name;
  }
  process.start = sample.start >= 0 ? sample.start : process.start;
  process.memory_kb = memory_kb >= 0 ? memory_kb : process.memory_kb;
  process.watched = watched_;
  return process;
}

void Judge::take(const Sample& sample) {
  last_ = processes_.empty() ? sample.time : last_;
  const double passed = sample.time - last_;
  watched_ += passed > 0 && passed <= kGap ? passed : 0;
  last_ = std::max(last_, sample.time);
  if (watched_ - swept_ > kSweep) {
    swept_ = watched_;
    forget_lost(sample.time);
  }

  const int64_t memory_kb = memory_of(sample);
  Process& process = find(sample, memory_kb);
  if (sample.time < process.last) {
    return;
  }
  process.last = sample.time;
  const uint32_t before = process.minute;
  process.minute = process.minute_at(sample.time);
  const int64_t levels[kResources] = {memory_kb, sample.threads, sample.open_files};
  for (size_t i = 0; i < kResources; ++i) {
    History& history = process.histories[i];
    if (process.minute != before) {
      history.advance(before, process.minute);
    }
    if (levels[i] < 0) {
      continue;
    }
    if (process.minute != before) {
      const double now = static_cast<double>(levels[i]);
      const double limits[kResources] = {
          std::min(known(sample.memory_limit_kb), now + known(sample.memory_available_kb)),
          known(sample.threads_limit), known(sample.open_files_limit)};
      Change change;
      if (history.look({before, process.minute, now, limits[i]}, static_cast<Resource>(i),
                       &change)) {
        Verdict verdict = verdict_of(sample.pid, process, static_cast<Resource>(i), change);
        verdict.now = now;
        if (limits[i] != HUGE_VAL) {
          verdict.limit = limits[i];
        }
        tell_(verdict);
      }
    }
    history.take(clamp(levels[i]));
  }
}

// The change in full, with what is known of the process and of the growth.
Verdict Judge::verdict_of(int32_t pid, const Process& process, Resource resource,
                          const Change& change) {
  const History& history = process.histories[static_cast<size_t>(resource)];
  Verdict verdict;
  verdict.time = process.last;
  verdict.pid = pid;
  verdict.start = process.start;
  verdict.name = process.name;
  verdict.resource = resource;
  verdict.state = change.state;
  verdict.from = history.from();
  verdict.now = history.last(process.minute);
  verdict.since = process.first + history.since() * 60.0;
  verdict.evidence = change.evidence;
  if (history.limit() != HUGE_VAL) {
    verdict.limit = history.limit();
  }
  if (change.state != State::kEnded) {
    verdict.rate_per_hour = change.rate_per_hour;
    if (change.seconds_to_limit != HUGE_VAL) {
      verdict.seconds_to_limit = change.seconds_to_limit;
    }
  }
  return verdict;
}

void Judge::for_each_told(const Tell& show) const {
  for (const auto& [pid, process] : processes_) {
    for (size_t i = 0; i < kResources; ++i) {
      Change change;
      if (process.histories[i].told(process.minute, &change)) {
        show(verdict_of(pid, process, static_cast<Resource>(i), change));
      }
    }
  }
}

void Judge::end_all(int32_t pid, Process& process, double time) {
  constexpr Evidence kOver{Evidence::Kind::kProcessEnded, 0};
  for (size_t i = 0; i < kResources; ++i) {
    if (process.histories[i].end()) {
      Verdict verdict =
          verdict_of(pid, process, static_cast<Resource>(i), {State::kEnded, 0, HUGE_VAL, kOver});
      verdict.time = time;
      tell_(verdict);
    }
  }
}

void Judge::end(int32_t pid, double time) {
  const auto found = processes_.find(pid);
  if (found != processes_.end()) {
    end_all(pid, found->second, time);
    processes_.erase(found);
  }
}

void Judge::forget_lost(double time) {
  std::vector<int32_t> lost;
  for (const auto& [pid, process] : processes_) {
    if (watched_ - process.watched > kLost) {
      lost.push_back(pid);
    }
  }
  std::sort(lost.begin(), lost.end());  // the same order each time
  for (const int32_t pid : lost) {
    end(pid, time);
  }
}

}  // namespace judge
