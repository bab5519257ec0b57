#include "storms.h"

#include <fcntl.h>
#include <signal.h>
#include <stdio.h>
#include <string.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <random>
#include <stdexcept>

#include "lives.h"
#include "population.h"
#include "support/child.h"
#include "surroundings.h"

namespace {

// So many a second; the rests that let passes meet them.
constexpr int kForkRate = 200;
constexpr int kExecRate = 50;
constexpr int kShortRestMs = 10;
// Baselines are taken at the age of 3 s; this many passes and rests are longer.
constexpr int kBaselinePasses = 10;
constexpr int kBaselineRestMs = 500;
constexpr int kOldAgeMs = 6000;

// Calls `work` with 0, 1, 2 ... at an even pace, and catches up when it was held up.
template <typename Work>
void at_rate(int a_second, int seconds, Work work) {
  timespec next;
  clock_gettime(CLOCK_MONOTONIC, &next);
  for (int i = 0; i < a_second * seconds; ++i) {
    work(i);
    next.tv_nsec += 1000000000 / a_second;
    if (next.tv_nsec >= 1000000000) {
      next.tv_nsec -= 1000000000;
      ++next.tv_sec;
    }
    clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &next, nullptr);
  }
}

void rename_to(std::span<char> command_line, const std::string& name) {
  std::fill(command_line.begin(), command_line.end(), '\0');
  name.copy(command_line.data(), command_line.size() - 1);
}

// Living for 0 to 300 ms, and every 20th long enough for a baseline.
void fork_for(int seconds, std::span<char> command_line) {
  std::minstd_rand random(1);
  at_rate(kForkRate, seconds, [&](int i) {
    const auto life_ms = i % 20 == 0 ? kOldAgeMs : static_cast<int>(random() % 300);
    const pid_t pid = fork();
    require(pid >= 0, "fork");
    if (pid == 0) {
      rename_to(command_line, "fork" + std::to_string(i % 50));
      usleep(static_cast<useconds_t>(life_ms) * 1000);
      _exit(0);
    }
    while (waitpid(-1, nullptr, WNOHANG) > 0) {
    }
  });
  while (waitpid(-1, nullptr, 0) > 0) {
  }
}

// 32 processes, of which 20 are replaced so often that they live a tenth of a second, and the rest
// live for 6: by others with the same pids, but other names and numbers of descriptors.
class PidRing {
 public:
  static constexpr int kFirst = 1000, kFast = 20, kSlow = 12;

  explicit PidRing(std::span<char> command_line) : command_line_(command_line) {}
  ~PidRing() {
    for (int i = 0; i < kFast + kSlow; ++i) {
      end(i);
    }
  }
  PidRing& operator=(PidRing&&) = delete;  // nor any copy

  void replace_for(int seconds) {
    constexpr int kSlowEvery = kOldAgeMs / kSlow * kForkRate / 1000;
    at_rate(kForkRate, seconds, [this](int i) {
      const int slow = i / kSlowEvery % kSlow;
      replace(i % kSlowEvery == 0 ? kFast + slow : i % kFast, i);
    });
  }

 private:
  void end(int index) {
    if (alive_[index]) {
      alive_[index] = false;
      kill(kFirst + index, SIGKILL);
      waitpid(kFirst + index, nullptr, 0);
    }
  }
  void replace(int index, int generation) {
    end(index);
    set_next_pid(kFirst + index);
    const pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      rename_to(command_line_, "ring" + std::to_string(generation % 97));
      for (int more = generation % 2 * 30; more > 0; --more) {
        dup(0);
      }
      for (;;) {
        pause();
      }
    }
    require(pid == kFirst + index, "the pid asked for was not given");
    alive_[index] = true;
  }

  std::span<char> command_line_;
  bool alive_[kFast + kSlow] = {};
};

void exec_for(int seconds, std::vector<std::unique_ptr<Child>>* children) {
  constexpr int kChildren = 10;
  while (children->size() < kChildren) {
    children->push_back(std::make_unique<Child>("exec"));
  }
  at_rate(kExecRate, seconds, [&](int i) {
    (*children)[static_cast<size_t>(i % kChildren)]->command("exec exec" + std::to_string(i % 97));
  });
}

// Raises the limit for what is started here, where it is allowed to, and returns what may be opened
// of `wanted` descriptors.
int allow_descriptors(int wanted) {
  constexpr rlim_t kSpare = 100;
  const rlim_t limit = static_cast<rlim_t>(wanted) + kSpare;
  rlimit limits;
  require(getrlimit(RLIMIT_NOFILE, &limits) == 0, "limit of descriptors");
  if (limits.rlim_cur < limit) {
    const rlimit raised = {limit, std::max(limits.rlim_max, limit)};
    if (setrlimit(RLIMIT_NOFILE, &raised) != 0) {
      limits.rlim_cur = limits.rlim_max;
      require(setrlimit(RLIMIT_NOFILE, &limits) == 0, "limit of descriptors");
      return static_cast<int>(limits.rlim_cur - kSpare);
    }
  }
  return wanted;
}

// Neighbours differ in their permissions, so that the kernel keeps them apart.
class Areas {
 public:
  explicit Areas(int count) : count_(static_cast<size_t>(count)) {
    at_ = static_cast<char*>(mmap(nullptr, count_ * page_, PROT_READ | PROT_WRITE,
                                  MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0));
    require(at_ != MAP_FAILED, "mmap");
    for (size_t i = 0; i < count_; i += 2) {
      require(mprotect(at_ + i * page_, page_, PROT_READ) == 0, "mprotect");
    }
  }
  ~Areas() { munmap(at_, count_ * page_); }
  Areas& operator=(Areas&&) = delete;  // nor any copy

  // Makes the writable areas from one part in four of all to another resident.
  void touch(size_t from, size_t to) {
    for (size_t i = count_ / 4 * from + 1; i < count_ / 4 * to; i += 2) {
      at_[i * page_] = 1;
    }
  }

 private:
  const size_t page_ = static_cast<size_t>(sysconf(_SC_PAGESIZE));
  size_t count_;
  char* at_;
};

void replace_in_tree(MadeTree& tree, int seconds) {
  at_rate(kForkRate, seconds, [&tree](int i) {
    tree.put({.pid = PidRing::kFirst + i % PidRing::kFast,
              .name = "ring" + std::to_string(i % 97),
              .fds = 3 + i % 2 * 30});
  });
}

Storm forks(bool quick, std::span<char> command_line) {
  const int seconds = quick ? 3 : 60;
  return {
      .what = std::to_string(kForkRate) + " forks a second for " + std::to_string(seconds) + " s",
      .steps = {[=] { fork_for(seconds, command_line); }},
      .longest_rest_ms = kShortRestMs};
}

Storm pids(bool quick, std::span<char> command_line) {
  const int seconds = quick ? 3 : 30;
  Storm storm = {.what = std::to_string(kForkRate) + " times a second a pid used again, for " +
                         std::to_string(seconds) + " s",
                 .longest_rest_ms = kShortRestMs};
  if (own_pid_namespace()) {
    const auto ring = std::make_shared<std::unique_ptr<PidRing>>();
    storm.steps = {[=] {
      *ring = std::make_unique<PidRing>(command_line);
      (*ring)->replace_for(seconds);
    }};
  } else {
    storm.what += " (on a made tree)";
    storm.tree = make_tree();
    storm.steps = {[=, tree = storm.tree.get()] { replace_in_tree(*tree, seconds); }};
  }
  return storm;
}

Storm execs(bool quick) {
  const int seconds = quick ? 3 : 30;
  const auto children = std::make_shared<std::vector<std::unique_ptr<Child>>>();
  return {.what = std::to_string(kExecRate) + " programs a second replace themselves, for " +
                  std::to_string(seconds) + " s",
          .steps = {[=] { exec_for(seconds, children.get()); }},
          .longest_rest_ms = kShortRestMs};
}

Storm processes(bool quick) {
  const size_t count = quick ? 2000 : 10000;
  const auto population = std::make_shared<std::unique_ptr<Population>>();
  return {.what = std::to_string(count) + " live processes",
          .steps = {[=] { *population = std::make_unique<Population>(plain_shapes(count)); }},
          .passes = 3};
}

// In hundredths of all: each step adds a bit more than half, so that the second has the growth
// explained, and the third has it compared with the second.
constexpr int kGrowth[] = {42, 65, 100};

Storm descriptors(bool quick) {
  const int count = allow_descriptors(quick ? 10000 : 100000);
  const auto child = std::make_shared<std::unique_ptr<Child>>();
  Storm storm = {.what = "one process with " + std::to_string(count) + " descriptors",
                 .passes = kBaselinePasses,
                 .longest_rest_ms = kBaselineRestMs};
  for (int had = 0; const int part : kGrowth) {
    storm.steps.push_back([=] {
      if (*child == nullptr) {
        *child = std::make_unique<Child>("descriptors");
      }
      (*child)->command("files " + std::to_string(count * part / 100 - count * had / 100));
    });
    had = part;
  }
  return storm;
}

// One whose numbers grow on a made tree.
Storm made(const std::string& what, const std::function<MadeProcess(int)>& at_part) {
  Storm storm = {.what = what + " (on a made tree)",
                 .passes = kBaselinePasses,
                 .longest_rest_ms = kBaselineRestMs,
                 .still = true,
                 .tree = make_tree()};
  for (const int part : kGrowth) {
    storm.steps.push_back([=, tree = storm.tree.get()] { tree->put(at_part(part)); });
  }
  return storm;
}

Storm made_descriptors(bool quick) {
  const int count = quick ? 10000 : 100000;
  return made("one process with " + std::to_string(count) + " descriptors", [=](int part) {
    return MadeProcess{.pid = 1000, .name = "descriptors", .fds = count / 100 * part};
  });
}

Storm threads(bool quick) {
  const int count = quick ? 3000 : 30000;
  return made("one process with " + std::to_string(count) + " threads", [=](int part) {
    return MadeProcess{.pid = 1000, .name = "threads", .threads = count / 100 * part};
  });
}

// Its resident size grows, which has the areas walked.
Storm areas(bool quick) {
  const int count = quick ? 6000 : 60000;
  const auto own = std::make_shared<std::unique_ptr<Areas>>();
  return {.what = "one process with " + std::to_string(count) + " areas",
          .steps = {[=] {
                      *own = std::make_unique<Areas>(count);
                      (*own)->touch(0, 1);
                    },
                    [=] { (*own)->touch(1, 2); }, [=] { (*own)->touch(2, 4); }},
          .passes = kBaselinePasses,
          .longest_rest_ms = kBaselineRestMs};
}

}  // namespace

Storm make_storm(std::string_view name, bool quick, std::span<char> command_line) {
  if (own_pid_namespace()) {
    pass_low_pids();
  }
  if (name == "forks") return forks(quick, command_line);
  if (name == "pids") return pids(quick, command_line);
  if (name == "execs") return execs(quick);
  if (name == "processes") return processes(quick);
  if (name == "descriptors") return descriptors(quick);
  if (name == "made-descriptors") return made_descriptors(quick);
  if (name == "areas") return areas(quick);
  if (name == "threads") return threads(quick);
  if (name == "once-round") return once_round(quick);
  if (name == "day") return day(quick);
  if (name == "locked") return locked(quick);
  if (name == "charged") return charged(quick);
  if (name == "refused") return refused(quick);
  throw std::runtime_error("no such storm");
}
