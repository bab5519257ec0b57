// storm NAME [quick]: has the cycle run through one storm, and prints a row of a Markdown table;
// storm heading NAME...: the table's heading, if one of these has a row in it; storm names: the
// storms there are; storm sizes: the bytes of a slot of the table and of the note beside it, and
// the slots of the static one. Three print what they find in their own way: equal has the two kinds
// of visit look at one population, fuse holds up the watch, flood has strangers connect to the
// listener. The exit status is 0 if the table was exact after each of its steps, and descriptors
// and heap were in the end as before.
#include <malloc.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <exception>
#include <filesystem>
#include <fstream>
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "cycle.h"
#include "flood.h"
#include "hold.h"
#include "maker.h"
#include "proctable/pool.h"
#include "storms.h"
#include "support/both_visits.h"
#include "table_check.h"
#include "transcript.h"

namespace {

constexpr unsigned kLongestS = 1200;
constexpr size_t kHeapMargin = 16384;  // a longer name in a ranking, say
struct Holdings {
  size_t heap_bytes;
  long descriptors;
  size_t resident_kb;
  size_t locked_kb;
};

size_t own_kb(const std::string& key) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    if (size_t kb; word == key && status >> kb) {
      return kb;
    }
  }
  return 0;
}

Holdings holdings() {
  const size_t heap = mallinfo2().uordblks;
  const std::filesystem::directory_iterator own("/proc/self/fd");
  return {heap, std::distance(begin(own), end(own)), own_kb("VmRSS:"), own_kb("VmLck:")};
}

void require_within(const Storm& storm, const Holdings& held) {
  if (held.resident_kb > storm.resident_limit_kb || held.locked_kb > storm.locked_limit_kb) {
    throw std::runtime_error(std::to_string(held.resident_kb) + " kB resident, " +
                             std::to_string(held.locked_kb) + " kB locked");
  }
}

void require_exact_table(const tw_process_list& list, std::optional<int> parent) {
  const std::string faults = table_faults(list, parent);
  if (!faults.empty()) {
    throw std::runtime_error("the table is not exact:" + faults.substr(0, 1000));
  }
}

int run(const char* name, bool quick, std::span<char> command_line) {
  Storm storm = make_storm(name, quick, command_line);
  const size_t steps = storm.steps.size();
  Maker maker(std::move(storm.steps));
  storm.prepare_host();
  Transcript transcript;
  Cycle cycle(storm.longest_rest_ms, storm.whole_clock);
  cycle.hold_after(2);
  const Holdings before = holdings();
  require_within(storm, before);
  const bool among_others = getpid() != 1 && storm.tree == nullptr;
  const auto children_of = among_others ? std::optional(maker.pid()) : std::nullopt;
  // The last step is the end.
  for (size_t step = 0; step <= steps; ++step) {
    if (!storm.still) {
      cycle.resume();
    }
    maker.step();
    require_exact_table(*cycle.hold_after(step < steps ? storm.passes : 1), children_of);
  }
  const Holdings after = holdings();
  require_within(storm, after);
  const CycleFigures& figures = cycle.figures();
  printf(
      "| %s | %d ms | %ld | %.1f s | %.1f ms | %.1f ms | %ld → %ld | "
      "%zu → %zu | %.1f → %.1f |",
      storm.what.c_str(), storm.longest_rest_ms, figures.passes,
      static_cast<double>(figures.longest_pass_us) / 1e6,
      static_cast<double>(figures.longest_slice_us) / 1e3,
      static_cast<double>(figures.most_cpu_us) / 1e3, before.descriptors, after.descriptors,
      before.heap_bytes, after.heap_bytes, static_cast<double>(before.resident_kb) / 1024,
      static_cast<double>(after.resident_kb) / 1024);
  if (after.locked_kb != 0) {
    printf(" locked: %zu kB → %zu kB", before.locked_kb, after.locked_kb);
  }
  for (const auto& [kind, count] : transcript.kinds()) {
    printf(" %d × `%s`", count, kind.c_str());
  }
  printf(" |\n");
  storm.tree.reset();
  // Of others' processes that grow more is kept than there was.
  const bool heap_is_flat = after.heap_bytes <= before.heap_bytes + kHeapMargin || among_others;
  return after.descriptors == before.descriptors && heap_is_flat ? 0 : 1;
}

// Nine parts of ten are compared, one runs free.
void compare_visits(bool quick) {
  using Clock = std::chrono::steady_clock;
  const std::chrono::seconds compared(quick ? 18 : 540), free(quick ? 2 : 60);
  const unsigned seed = std::random_device{}();
  BothVisits both(seed);
  both.compare_until(Clock::now() + compared);
  both.run_free_until(Clock::now() + free);
  printf("\nBoth kinds of visit, seed %u:", seed);
  for (const auto& [what, count] : both.counts()) {
    printf(" %d %s;", count, what.c_str());
  }
  printf(" no other difference\n");
}

// What has no row in the table; each throws if something does not hold.
struct Run {
  std::string_view name;
  void (*run)(bool quick);
};
constexpr Run kRuns[] = {
    {"equal", compare_visits}, {"fuse", [](bool) { run_hold(); }}, {"flood", run_flood}};

bool is_storm(std::string_view name) {
  return std::find(std::begin(kStormNames), std::end(kStormNames), name) != std::end(kStormNames);
}

void print_names() {
  for (const std::string_view known : kStormNames) {
    printf("%s\n", std::string(known).c_str());
  }
  for (const Run& run : kRuns) {
    printf("%s\n", std::string(run.name).c_str());
  }
}

void print_heading() {
  printf(
      "| storm | rests cut to | passes | longest pass | longest slice | most CPU in a slice | "
      "descriptors | heap, bytes | resident, MiB | lines of the log, events |\n"
      "|---|---|---|---|---|---|---|---|---|---|\n");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string name = argc > 1 ? argv[1] : "";
  if (name == "heading") {
    if (std::any_of(argv + 2, argv + argc, is_storm)) {
      print_heading();
    }
    return 0;
  }
  if (name == "sizes") {
    printf("%zu %zu %u\n", sizeof(tw_process_entry), sizeof(tw_process_note), TW_PROCESS_SLOTS);
    return 0;
  }
  const auto own = std::find_if(std::begin(kRuns), std::end(kRuns),
                                [&](const Run& run) { return run.name == name; });
  if (own == std::end(kRuns) && !is_storm(name)) {
    print_names();
    return name == "names" ? 0 : 2;
  }
  // Else they are lost on the first process of a pid namespace, which this is to be.
  for (const int ending : {SIGINT, SIGTERM, SIGALRM}) {
    signal(ending, [](int) { _exit(1); });
  }
  alarm(kLongestS);
  int status = 1;
  const bool quick = argc > 2 && strcmp(argv[2], "quick") == 0;
  try {
    if (own != std::end(kRuns)) {
      own->run(quick);
      status = 0;
    } else {
      // All arguments lie in one piece (execve(2)).
      char* const end = argv[argc - 1] + strlen(argv[argc - 1]);
      status = run(name.c_str(), quick, std::span(argv[0], end));
    }
  } catch (const std::exception& error) {
    fprintf(stderr, "%s: %s\n", name.c_str(), error.what());
  }
  fflush(stdout);
  _exit(status);  // the cycle runs on
}
