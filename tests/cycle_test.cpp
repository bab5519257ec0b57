// The main cycle, on a made tree and a clock that only moves as told.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <semaphore>
#include <thread>

#include "interest/interest_list.h"
#include "support/captured_output.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"

namespace {

using Steps = std::vector<int64_t>;

// What the clock's readings cost in one pass: the pass's start, the scan's two, the memory
// summary's (whose file is missing), then for each slice its start and one look for each process,
// the end.
Steps pass(int64_t setup, const std::vector<Steps>& slices) {
  Steps steps = {0, 0, setup, 0};
  for (const Steps& slice : slices) {
    steps.push_back(0);
    steps.insert(steps.end(), slice.begin(), slice.end());
  }
  steps.push_back(0);
  return steps;
}

Steps operator+(Steps a, const Steps& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

std::string overload(int ms, int count, int total) {
  return ">> overloaded cycle: " + std::to_string(ms) +
         " ms, overload count: " + std::to_string(count) +
         "; total cycles: " + std::to_string(total) + "\n";
}

TEST(Cycle, RestsAndOverloadsAreTheStatedOnes) {
  const std::vector<Steps> five(5, Steps{60}), six(6, Steps{60});
  const struct {
    const char* what;
    int processes;
    Steps steps;
    Steps rests;
    std::string report;
  } rows[] = {
      {"300 ms of work", 1, pass(0, {{300}}), {1700}, ""},
      {"exactly a period", 1, pass(0, {{1000}}), {1000}, ""},
      {"set-up counts as work", 1, pass(100, {{300}}), {1600}, ""},
      {"one more, then 1 ms", 1, pass(0, {{1001}}) + pass(0, {{1}}), {1999}, ""},
      {"nothing, then 300", 1, pass(0, {{0}}) + pass(0, {{300}}), {1700}, ""},
      {"clock an hour back, then 300", 1, pass(0, {{-3600000}}) + pass(0, {{300}}), {1700}, ""},
      {"an hour forward, then 300",
       1,
       pass(0, {{3600000}}) + pass(0, {{300}}),
       {1700},
       overload(3600000, 1, 1)},
      {"back in the scan itself", 1, pass(-5, {{300}}), {1700}, ""},
      {"budget of 0: one process a slice", 2, pass(60, {{0}, {3}}), {1940, 1997}, ""},
      {"budget below 0", 2, pass(75, {{0}, {3}}), {1925, 1997}, ""},
      {"budget of 60: stops at the third", 4, pass(0, {{25, 25, 25}, {9}}), {1925, 1991}, ""},
      {"five slices", 5, pass(0, five), Steps(5, 1940), ""},
      // The sixth slice finds its process gone, at no cost: 10000 ms to the millisecond.
      {"at the limit", 6, pass(0, {{60}, {60}, {60}, {60}, {60}, {}}), Steps(5, 1940),
       overload(10000, 1, 1)},
      {"six slices", 6, pass(0, six), Steps(6, 1940), overload(10060, 1, 1)},
      {"overloads among passes", 6, pass(0, six) + pass(0, {{1, 1, 1, 1, 1, 1}}) + pass(0, six),
       Steps(6, 1940) + Steps{1994} + Steps(6, 1940),
       overload(10060, 1, 1) + overload(10060, 2, 3)}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.what);
    fresh_table();
    MadeTree tree;
    for (int i = 0; i < row.processes; ++i) tree.put({.pid = 300 + i, .ppid = 2});
    CapturedOutput output;
    FakeClock clock;
    clock.steps_ms.assign(row.steps.begin(), row.steps.end());
    clock.on_rest = [&] {
      if (clock.rests_ms.size() == row.rests.size()) std::filesystem::remove_all(tree.root());
    };
    EXPECT_EQ(taskwarden_start(), -1);
    EXPECT_EQ(clock.rests_ms, row.rests);
    EXPECT_TRUE(clock.steps_ms.empty());
    EXPECT_EQ(output.report(), "Start the Task Warden\nNo builtin interested list\n" + row.report);
  }
}

TEST(Cycle, EndsOnlyWhenThereIsNothingToWatch) {
  fresh_table();
  MadeTree tree({{.pid = 299}});
  CapturedOutput output;
  EXPECT_EQ(taskwarden_start(), 1);
  EXPECT_EQ(output.log(), "taskwarden main|>> there's no process to iterate!!");
  std::filesystem::remove_all(tree.root());
  EXPECT_EQ(taskwarden_start(), -1);
  EXPECT_EQ(output.log(),
            "taskwarden stats|>> failed to open \"proc\": No such file or directory\n");
  EXPECT_EQ(is_standalone(), getuid() == 0 || getuid() == 2000);
}

TEST(Cycle, PausesAtAPassesEndOnly) {
  tw_process_list* list = fresh_table();
  MadeTree tree({{.pid = 300, .ppid = 2}, {.pid = 301, .ppid = 2}});
  FakeClock clock;
  clock.steps_ms = {0, 0, 60, 0, 0, 5, 0, 5, 0};
  CapturedOutput output;
  std::binary_semaphore paused(0);
  output.on_report = [&](std::string_view text) {
    if (text == "-> taskwarden is paused...\n") {
      EXPECT_EQ(clock.rests_ms.size(), 2U);
      tree.put({.pid = 302, .ppid = 2});
      paused.release();
    }
  };
  clock.on_rest = [&] {
    clock.steps_ms.insert(clock.steps_ms.end(), {0, 0, 0, 0, 0, 1});
    if (clock.rests_ms.size() == 1) {  // in mid-pass; withdrawn and requested again
      EXPECT_EQ(output.report(), "Start the Task Warden\nNo builtin interested list\n");
      taskwarden_notify(1);
      taskwarden_notify(2);
      taskwarden_notify(3);
    } else if (clock.rests_ms.size() == 3) {
      std::filesystem::remove_all(tree.root());
    }
  };
  std::thread resumer([&] {
    paused.acquire();
    EXPECT_EQ(list->count, 2U);  // nothing is scanned while paused
    taskwarden_notify(0);
  });
  EXPECT_EQ(taskwarden_start(), -1);
  resumer.join();
  EXPECT_EQ(list->count, 3U);
  EXPECT_EQ(output.report(),
            "-> pause taskwarden\n-> resume taskwarden\n-> pause taskwarden\n"
            "-> taskwarden is paused...\n-> resume taskwarden\n-> taskwarden continues to run\n");
}

// A sink that counts, and knows whether it is the one in place.
struct Sink {
  static void take(void* self, int, const char*, const char* text, size_t) {
    auto& sink = *static_cast<Sink*>(self);
    EXPECT_TRUE(sink.in_place);
    sink.added += std::string_view(text) == "Add the builtin interest: nobody\n";
  }
  bool in_place = false;
  int added = 0;
};

TEST(Cycle, BearsCallsFromAllSides) {
  fresh_table();
  MadeTree tree({{.pid = 300}, {.pid = 301}});
  FakeClock clock;
  Sink sinks[2];
  std::atomic<int> passes = 0, added = 0, calling = 5;
  int current = 0;
  const auto pause = [] { taskwarden_notify(1), taskwarden_notify(0); };
  const std::function<void()> calls[] = {pause, pause, taskwarden_request_dump,
                                         [&] { interest_builtin_add("nobody"), ++added; },
                                         [&] {
                                           sinks[1 - current].in_place = true;
                                           taskwarden_set_output(Sink::take, &sinks[1 - current]);
                                           sinks[current].in_place = false;
                                           current = 1 - current;
                                         }};
  calls[4]();
  std::vector<std::jthread> callers;
  for (const auto& call : calls) {
    callers.emplace_back([&] {
      while (passes < 100) call();
      --calling;
    });
  }
  clock.on_rest = [&] {
    clock.steps_ms.assign(1000, 1);
    if (++passes >= 100 && calling == 0) std::filesystem::remove_all(tree.root());
  };
  clock.steps_ms.assign(1000, 1);
  EXPECT_EQ(taskwarden_start(), -1);
  taskwarden_set_output(nullptr, nullptr);
  EXPECT_EQ(sinks[0].added + sinks[1].added, added);
}

TEST(Cycle, DumpsBetweenPassesAndWhilePaused) {
  fresh_table();
  MadeTree tree({{.pid = 300, .ppid = 2}});
  FakeClock clock;
  CapturedOutput output;
  std::counting_semaphore<> paused(0);
  clock.steps_ms = {0, 0, 0, 0, 0, 1};
  clock.on_rest = [&] {
    EXPECT_EQ(output.report().find("Dump"), std::string::npos);
    taskwarden_notify(1);
    std::filesystem::remove_all(tree.root());
  };
  output.on_report = [&](std::string_view text) {
    if (text == "-> taskwarden is paused...\n") paused.release();
  };
  taskwarden_request_dump();
  taskwarden_request_dump();  // one dump for both
  std::thread host([&] {
    paused.acquire();
    taskwarden_request_dump();
    paused.acquire();
    taskwarden_notify(0);
  });
  EXPECT_EQ(taskwarden_start(), -1);
  host.join();
  const std::string dumps = "-> Dump parts of 1 processes:\n-> Dump the interested processes:\n";
  const std::string pause = "-> taskwarden is paused...\n";
  const std::string end = "-> taskwarden continues to run\n";
  EXPECT_EQ(output.report(), "-> pause taskwarden\n" + dumps + pause + end + dumps + pause +
                                 "-> resume taskwarden\n" + end);
}

}  // namespace
