#include "host/demo_command.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <system_error>
#include <utility>

#include "host/output.h"
#include "host/until_signal.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

// A baseline takes being found, 3 seconds of the same name, and the visit after that; visits are 2
// seconds apart, on a busy machine 4.
constexpr std::chrono::seconds kSettle{12};
// From the last leak to the end.
constexpr std::chrono::seconds kLastVisit{8};
// The watch passes over lower pids.
constexpr pid_t kFirstWatched = 300;

struct Kind {
  const char* name;
  const char* first;  // what a child does in the first round, and what follows
  const char* second;
};

constexpr Kind kKinds[] = {
    {"threads", "starts 10 threads: Event_ThreadAmount",
     "starts 20 more: Event_ThreadAmount with what was created, and a record"},
    {"sockets", "opens 30 sockets: Event_OpenFileAmount",
     "opens 60 more: Event_OpenFileAmount with what was opened, and a record"},
    {"pipes", "opens 15 pipes: Event_OpenFileAmount",
     "opens 30 more: Event_OpenFileAmount with what was opened, and a record"},
    {"files", "opens 30 files: Event_OpenFileAmount",
     "opens 270 more: Event_OpenFileAmount with what was opened, a record, and "
     "Event_OpenFileFDSize"},
    {"memory", "fills 24 MiB: Event_ResidentSize",
     "fills 24 MiB more: Event_ResidentSize with what grew, and a record"},
    {"shared",
     "shares 24 MiB: Event_ResidentSize; also Event_VssAshmem if root's and interesting "
     "(watch --interest demo-shared)",
     "shares 24 MiB more: Event_ResidentSize with what grew, and a record"},
    {"rename", "becomes another program, demo-renamed: no event, it starts afresh",
     "opens 30 files: Event_OpenFileAmount under the new name"},
};

class Child {
 public:
  explicit Child(const Kind& kind) : kind_(kind) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "a pipe");
    }
    const unique_fd input(ends[0]);
    orders_.reset(ends[1]);
    pass_low_pids();
    const std::string name = std::string("demo-") + kind.name;
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ < 0) {
      throw std::system_error(errno, std::generic_category(), "a child");
    }
    if (pid_ == 0) {
      become(name.c_str(), input.get(), parent);
    }
  }
  ~Child() {
    if (pid_ > 0) {
      ::kill(pid_, SIGKILL);
      ::waitpid(pid_, nullptr, 0);
    }
  }
  Child(Child&& other) noexcept
      : kind_(other.kind_), orders_(std::move(other.orders_)), pid_(std::exchange(other.pid_, 0)) {}
  Child& operator=(Child&&) = delete;

  pid_t pid() const { return pid_; }

  // In the round given, 0 or 1.
  void leak(int round) {
    say("demo: " + std::to_string(pid_) + " demo-" + kind_.name + " " +
        (round == 0 ? kind_.first : kind_.second));
    // A child that has ended is told of elsewhere.
    static_cast<void>(::write(orders_.get(), "", 1));
  }

 private:
  // In a new pid namespace, such as a container's, the next pids may be unwatched ones; those are
  // given out but once.
  static void pass_low_pids() {
    for (pid_t pid = 1; pid > 0 && pid < kFirstWatched - 1;) {
      pid = ::vfork();
      if (pid == 0) {
        ::_exit(0);
      }
      ::waitpid(pid, nullptr, 0);
    }
  }

  // Dies with the parent in any case; the end of its orders ends it as well.
  [[noreturn]] void become(const char* name, int input, pid_t parent) const {
    ::prctl(PR_SET_PDEATHSIG, SIGKILL);
    const sigset_t none = signal_set({});
    ::sigprocmask(SIG_SETMASK, &none, nullptr);
    if (::getppid() == parent && ::dup2(input, STDIN_FILENO) == STDIN_FILENO) {
      ::execl("/proc/self/exe", name, "demo-child", kind_.name, nullptr);
    }
    ::_exit(1);
  }

  const Kind& kind_;
  unique_fd orders_;
  pid_t pid_ = 0;
};

// What ends a demonstration, other than time.
enum class End { kNone, kSignal, kChild };

End wait_until(Clock::time_point when) {
  const sigset_t awaited = signal_set({SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD});
  while (true) {
    const auto left = std::chrono::duration_cast<std::chrono::nanoseconds>(when - Clock::now());
    if (left.count() <= 0) {
      return End::kNone;
    }
    const timespec time = {left.count() / 1000000000, left.count() % 1000000000};
    const int signal = ::sigtimedwait(&awaited, nullptr, &time);
    if (signal == SIGCHLD) {
      // A stopped one is no ended one.
      siginfo_t ended = {};
      if (::waitid(P_ALL, 0, &ended, WEXITED | WNOHANG | WNOWAIT) == 0 && ended.si_pid != 0) {
        say("demo: child " + std::to_string(ended.si_pid) + " has ended before its time");
        return End::kChild;
      }
    } else if (signal > 0) {
      return End::kSignal;
    }
  }
}

End leak_in_turn(std::vector<Child>& children, std::chrono::seconds pace) {
  Clock::time_point next = Clock::now() + kSettle;
  for (const int round : {0, 1}) {
    const Clock::time_point settled = next + kSettle;
    for (Child& child : children) {
      if (const End end = wait_until(next); end != End::kNone) {
        return end;
      }
      child.leak(round);
      next += pace;
    }
    next = std::max(next, settled);
  }
  return wait_until(Clock::now() + kLastVisit);
}

}  // namespace

std::vector<std::string> demo_kinds() {
  std::vector<std::string> names;
  for (const Kind& kind : kKinds) {
    names.emplace_back(kind.name);
  }
  return names;
}

int run_demo(const DemoOptions& options) {
  block_signals({SIGHUP, SIGQUIT, SIGCHLD});
  std::vector<Child> children;
  for (const Kind& kind : kKinds) {
    const auto& only = options.kinds;
    if (only.empty() || std::find(only.begin(), only.end(), kind.name) != only.end()) {
      children.emplace_back(kind);
    }
  }
  // A stalled output must not keep the signals waiting.
  queue_output();
  say("demo: children started: " + std::to_string(children.size()) +
      "; they leak in turn, twice each, in " + std::to_string(kSettle.count()) +
      " seconds; have \"taskwarden watch\" run in "
      "another terminal by then");
  const End end = leak_in_turn(children, std::chrono::seconds(options.pace));
  if (end == End::kNone) {
    say("demo: done; all that was leaked is given back");
  }
  return end == End::kChild ? 1 : 0;
}

}  // namespace host
