// The main cycle, on a made tree and a clock that only moves as told.
#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <functional>
#include <semaphore>
#include <thread>

#include "interest/interest_list.h"
#include "support/world.h"
#include "taskwarden/taskwarden.h"

static uid_t user = 1;
extern "C" uid_t __wrap_getuid() {  // the build routes the library's calls here
  return user;
}

namespace {

TEST(Cycle, EndsWhenThereIsNothingToWatchAndKnowsItsUser) {
  World w({{.pid = 299}});
  const std::pair<uid_t, bool> rows[] = {
      {1, false}, {1999, false}, {2001, false}, {2000, true}, {0, true}};
  const auto start = [] {
    const int early = is_standalone(), ended = taskwarden_start() == 1;
    _exit(10 * early + 100 * !ended + is_standalone());
  };
  for (const auto& [uid, standalone] : rows) {
    user = uid;
    EXPECT_EXIT(start(), testing::ExitedWithCode(standalone), "") << uid;
  }
  user = 1;
  EXPECT_EQ(taskwarden_start(), 1);
  EXPECT_EQ(w.told(),
            "Start the Task Warden\nNo builtin interested list\n"
            "E main|>> there's no process to iterate!!\\\n");
}

TEST(Cycle, PausesAndDumpsAtAPassesEndOnly) {
  World w({{.pid = 300, .ppid = 2}, {.pid = 301, .ppid = 2}});
  const std::vector<double> quick = {0, 0, 0, 0, 0, 1};
  std::counting_semaphore<> paused(0);
  w.clock.steps_ms = {0, 0, 60, 0, 0, 5, 0, 5, 0};  // two slices
  w.on_report = [&](std::string_view text) {
    if (text != "-> taskwarden is paused...\n") return;
    EXPECT_EQ(w.clock.rests_ms.size(), 2U);
    w.tree.put({.pid = 302, .ppid = 2});
    paused.release();
  };
  w.clock.on_rest = [&] {
    w.clock.steps_ms.insert(w.clock.steps_ms.end(), quick.begin(), quick.end());
    if (w.clock.rests_ms.size() == 1) {  // in mid-pass; withdrawn and requested again
      EXPECT_EQ(w.told(),
                "Start the Task Warden\nNo builtin interested list\n"
                "E stats|>> failed to open meminfo!!\n");
      for (const int request : {1, 2, 3}) taskwarden_notify(request);
      taskwarden_request_dump(), taskwarden_request_dump();  // one dump for both
    } else if (w.clock.rests_ms.size() == 3) {
      w.tree.remove("");
    }
  };
  std::thread host([&] {
    paused.acquire();
    EXPECT_EQ(w.list->count, 2U);  // nothing is scanned while paused
    taskwarden_request_dump();
    paused.acquire();
    taskwarden_notify(0);
  });
  EXPECT_EQ(taskwarden_start(), -1);
  host.join();
  EXPECT_EQ(w.list->count, 3U);
  const std::string dumps = "-> Dump parts of 2 processes:\n-> Dump the interested processes:\n",
                    pause = "-> taskwarden is paused...\n",
                    resume = "-> taskwarden continues to run\n", told = w.told();
  EXPECT_EQ(told.substr(0, told.find("E ")),
            "-> pause taskwarden\n-> resume taskwarden\n-> pause taskwarden\n" + dumps + pause +
                resume + dumps + pause + "-> resume taskwarden\n" + resume);
}

TEST(Cycle, BearsCallsFromAllSides) {
  World w({{.pid = 300}, {.pid = 301}});
  static std::atomic<int> told = 0;
  std::atomic<int> passes = 0, added = 0, calling = 4;
  const auto sink = [] {
    taskwarden_set_output(
        [](void*, int, const char*, const char* text, size_t) {
          told += std::string_view(text) == "Add the builtin interest: nobody\n";
        },
        nullptr);
  };
  const std::function<void()> calls[] = {[] { taskwarden_notify(1), taskwarden_notify(0); },
                                         taskwarden_request_dump, sink,
                                         [&] { interest_builtin_add("nobody"), ++added; }};
  sink();
  std::vector<std::jthread> callers;
  for (const auto& call : calls) {
    callers.emplace_back([&] {
      while (passes < 100) call();
      --calling;
    });
  }
  w.clock.on_rest = [&] {
    w.clock.steps_ms.assign(1000, 1);
    if (++passes >= 100 && calling == 0) w.tree.remove("");
  };
  w.clock.steps_ms.assign(1000, 1);
  EXPECT_EQ(taskwarden_start(), -1);
  EXPECT_EQ(told, added);
}

}  // namespace
