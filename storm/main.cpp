// storm NAME [quick]: has the cycle run through one storm, and prints a row of a Markdown table;
// storm heading: the table's heading; storm names: the storms there are; storm equal [quick]: has
// the two kinds of visit look at one population, and says what happened; storm fuse prints a table
// of its own. The exit status is 0 if the table was exact after each of its steps, and descriptors
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
#include <optional>
#include <random>
#include <span>
#include <stdexcept>
#include <string>
#include <utility>

#include "cycle.h"
#include "hold.h"
#include "maker.h"
#include "storms.h"
#include "support/both_visits.h"
#include "table_check.h"
#include "transcript.h"

namespace {

constexpr const char* kBothVisits = "equal";  // no storm, but a run as long
constexpr const char* kStormOfReaders = "fuse";

constexpr size_t kHeapMargin = 16384;  // a longer name in a ranking, say
struct Holdings {
  size_t heap_bytes;
  long descriptors;
};

Holdings holdings() {
  const size_t heap = mallinfo2().uordblks;
  const std::filesystem::directory_iterator own("/proc/self/fd");
  return {heap, std::distance(begin(own), end(own))};
}

void require_exact_table(const tw_process_list& list, std::optional<int> parent) {
  const std::string faults = table_faults(list, parent);
  if (!faults.empty()) {
    throw std::runtime_error("the table is not exact:" + faults.substr(0, 1000));
  }
}

int run(const char* name, bool quick, std::span<char> command_line) {
  Storm storm = make_storm(name, quick, command_line);
  Maker maker(storm.steps);
  const size_t steps = std::exchange(storm.steps, {}).size();
  Transcript transcript;
  Cycle cycle(storm.longest_rest_ms);
  cycle.hold_after(2);
  const Holdings before = holdings();
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
  const CycleFigures& figures = cycle.figures();
  printf(
      "| %s | %d ms | %ld | %.1f s | %.1f ms | %.1f ms | %ld → %ld | "
      "%zu → %zu |",
      storm.what.c_str(), storm.longest_rest_ms, figures.passes,
      static_cast<double>(figures.longest_pass_us) / 1e6,
      static_cast<double>(figures.longest_slice_us) / 1e3,
      static_cast<double>(figures.most_cpu_us) / 1e3, before.descriptors, after.descriptors,
      before.heap_bytes, after.heap_bytes);
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
int compare_visits(bool quick) {
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
  return 0;
}

void print_heading() {
  printf(
      "| storm | rests cut to | passes | longest pass | longest slice | most CPU in a slice | "
      "descriptors | heap, bytes | lines of the log, events |\n"
      "|---|---|---|---|---|---|---|---|---|\n");
}

}  // namespace

int main(int argc, char** argv) {
  const std::string name = argc > 1 ? argv[1] : "";
  if (name == "heading") {
    print_heading();
    return 0;
  }
  if (name != kBothVisits && name != kStormOfReaders &&
      std::find(std::begin(kStormNames), std::end(kStormNames), name) == std::end(kStormNames)) {
    for (const std::string_view known : kStormNames) {
      printf("%s\n", std::string(known).c_str());
    }
    printf("%s\n%s\n", kBothVisits, kStormOfReaders);
    return name == "names" ? 0 : 2;
  }
  // Else they are lost on the first process of a pid namespace, which this is to be.
  for (const int ending : {SIGINT, SIGTERM}) {
    signal(ending, [](int) { _exit(1); });
  }
  int status = 1;
  const bool quick = argc > 2 && strcmp(argv[2], "quick") == 0;
  try {
    // All arguments lie in one piece (execve(2)).
    char* const end = argv[argc - 1] + strlen(argv[argc - 1]);
    if (name == kStormOfReaders) {
      run_hold();
      status = 0;
    } else {
      status = name == kBothVisits ? compare_visits(quick)
                                   : run(name.c_str(), quick, std::span(argv[0], end));
    }
  } catch (const std::exception& error) {
    fprintf(stderr, "%s: %s\n", name.c_str(), error.what());
  }
  fflush(stdout);
  _exit(status);  // the cycle runs on
}
