// Files that do not answer, and children that cannot be trusted to.
#include "host/common/bounded_reader.h"

#include <errno.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <functional>
#include <stdexcept>
#include <thread>

#include "host/listen/process_view.h"
#include "support/made_tree.h"

namespace {

using namespace std::chrono_literals;
using host::answer_within;
using host::Tell;

long descriptors() {
  const std::filesystem::directory_iterator own("/proc/self/fd");
  return std::distance(begin(own), end(own));
}

TEST(BoundedReader, TakesAnyAnswer) {
  const struct {
    const char* about;
    std::function<int(const Tell&)> work;
    int error;
    std::string text;
  } rows[] = {
      {"an answer", [](const Tell& tell) { return tell("a"), tell("b"), 0; }, 0, "ab"},
      {"nothing", [](const Tell&) { return 0; }, ENODATA, ""},
      {"an error", [](const Tell& tell) { return tell("a"), EACCES; }, EACCES, "a"},
      {"too much",
       [](const Tell& tell) {
         for (;;) tell("12345");
         return 0;
       },
       0, "12345123"},
      {"silence", [](const Tell& tell) { return tell("a"), pause(); }, ETIMEDOUT, "a"},
      {"a drip",
       [](const Tell& tell) {
         for (;; usleep(90000)) tell("x");
         return 0;
       },
       ETIMEDOUT, "*"},
      {"a crash", [](const Tell&) { return raise(SIGKILL); }, EIO, ""},
      {"an exception", [](const Tell&) -> int { throw std::runtime_error(""); }, EIO, ""},
      {"an end that lasts", [](const Tell&) { return close(3), pause(); }, ETIMEDOUT, ""},
      {"descriptors", [](const Tell& tell) { return tell(std::to_string(descriptors())), 0; }, 0,
       "5"},
  };
  const long before = descriptors();
  for (const auto& row : rows) {
    const auto begin = std::chrono::steady_clock::now();
    // A silence is not to begin before what was said is there.
    const auto patience = row.error != ETIMEDOUT ? 60s : row.text == "a" ? 3000ms : 350ms;
    const host::FileText answer = answer_within(patience, 8, row.work);
    EXPECT_EQ(answer.error, row.error) << row.about;
    EXPECT_TRUE(row.text == "*" || answer.text == row.text) << row.about << answer.text;
    EXPECT_LT(std::chrono::steady_clock::now() - begin, 30s) << row.about;
  }
  EXPECT_EQ(descriptors(), before);
  EXPECT_EQ(waitpid(-1, nullptr, WNOHANG), -1) << "a child is left";
}

TEST(BoundedReader, ReadsSomeFilesWhereOthersHang) {
  MadeTree tree;
  tree.write("7/cgroup", "0::/a\n");
  tree.write("9/status", "NSpid:\t9\n");
  tree.write("large", std::string(100000, 'x'));
  const std::string root = tree.root();
  mkfifo((root + "/7/cmdline").c_str(), 0600);
  const auto files = host::read_files_within(
      {root + "/none", root + "/large", root + "/7/cmdline", root + "/large"}, 50000, 3s);
  ASSERT_EQ(files.size(), 4U);
  EXPECT_EQ(files[0].error, ENOENT);
  EXPECT_TRUE(files[1].error == 0 && files[1].text.size() >= 50000);
  EXPECT_TRUE(files[2].error == ETIMEDOUT && files[3].error == ETIMEDOUT);
  const auto view = host::view_process({7, 0, "", "", ""}, {9, 0}, root);
  EXPECT_EQ(host::view_text(view), "\tcontrol group: /a\n");
}

// One that cannot be ended is stood for by one that is not ours to end.
TEST(BoundedReader, LeavesFewChildrenBehind) {
  const pid_t stuck = fork();
  if (stuck == 0) {
    for (;;) pause();
  }
  const auto answers = [] {
    return answer_within(60s, 9, [](const Tell& tell) { return tell("a"), 0; }).error;
  };
  host::adopt_children(std::vector<pid_t>(host::kMostLeftBehind, stuck));
  EXPECT_EQ(host::children_left_behind().size(), host::kMostLeftBehind);
  EXPECT_EQ(answers(), EBUSY);
  kill(stuck, SIGKILL);
  while (answers() == EBUSY) usleep(1000);
  EXPECT_TRUE(host::children_left_behind().empty());
}

TEST(BoundedReader, AnswersManyThreads) {
  std::jthread threads[4];
  for (auto& thread : threads) {
    thread = std::jthread([] {
      for (int i = 0; i < 20; ++i) {
        EXPECT_EQ(
            answer_within(60s, 99, [](const Tell& tell) { return tell(std::string(9, 'x')), 0; })
                .text.size(),
            9U);
      }
    });
  }
}

}  // namespace
