#include "host/demo/demo_command.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <string>
#include <system_error>
#include <utility>
#include <vector>

#include "host/common/option_checks.h"
#include "host/common/output.h"
#include "host/common/until_signal.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

constexpr char kFooter[] =
    R"(Starts a child for each KIND and waits until a watch knows them. Then the children leak in turn, and
some time later once more: the first event of a kind only takes an inventory, and the second shows
what was added. Standard error says what to expect. Start "taskwarden watch" first.

The demonstration takes 59 seconds, up to 200 MiB of memory and several hundred descriptors. It
releases all of it, however it ends.

  threads                 threads called demo-worker
  sockets, pipes, files   descriptors; files opens so many that the descriptor table grows as well
  memory                  anonymous memory (division UNNAMED)
  shared                  shared memory: as root in /dev/ashmem-demo of a mount namespace of its own
                          (division ASHMEM), otherwise in /dev/shm (division DEVNODE)
  rename                  the child becomes another program, which has a new baseline, then opens
                          descriptors
  leak                    only if it is named: a file every 1.2 seconds, of the 1024 that the child
                          may open, until a verdict is due. Takes 18 minutes

With thousands of processes each round of a watch takes longer, above all the first. Then start the
watch well before the demonstration, or use a larger --pace.

Exit status: 0 at the end or when stopped by a signal, 1 on failure, 2 on wrong usage.

Examples: taskwarden demo --only threads
          taskwarden demo --only leak)";

constexpr int kHour = 3600;  // seconds

// A baseline takes being found, 3 seconds of the same name, and the visit after that; visits are 2
// seconds apart, on a busy machine 4.
constexpr std::chrono::seconds kSettle{12};
// How long a steady leak goes on, which is until nearly all is used.
constexpr std::chrono::minutes kSteady{18};
// From the last leak to the end.
constexpr std::chrono::seconds kLastVisit{8};
// The watch passes over lower pids.
constexpr pid_t kFirstWatched = 300;

struct Kind {
  const char* name;
  const char* first;  // what a child does in the first round, and what follows
  const char* second;
  bool is_steady = false;  // the first round goes on, and is done only if asked for
};

constexpr Kind kKinds[] = {
    {"threads", "starts 10 threads; expect Event_ThreadAmount",
     "starts 20 more; expect Event_ThreadAmount with what was created, and a record"},
    {"sockets", "opens 30 sockets; expect Event_OpenFileAmount",
     "opens 60 more; expect Event_OpenFileAmount with what was opened, and a record"},
    {"pipes", "opens 15 pipes; expect Event_OpenFileAmount",
     "opens 30 more; expect Event_OpenFileAmount with what was opened, and a record"},
    {"files", "opens 30 files; expect Event_OpenFileAmount",
     "opens 270 more; expect Event_OpenFileAmount with what was opened, a record, and "
     "Event_OpenFileFDSize"},
    {"memory", "fills 24 MiB; expect Event_ResidentSize",
     "fills 24 MiB more; expect Event_ResidentSize with what grew, and a record"},
    {"shared",
     "shares 24 MiB; expect Event_ResidentSize, and as root also Event_VssAshmem if it is "
     "interesting (watch --interest demo-shared)",
     "shares 24 MiB more; expect Event_ResidentSize with what grew, and a record"},
    {"rename", "becomes another program, demo-renamed; expect no event, but a new baseline",
     "opens 30 files; expect Event_OpenFileAmount under the new name"},
    {"leak",
     "opens a file every 1.2 s, of 1024 that it may; expect the verdict that it is running out of "
     "open files, after about 15 minutes",
     "", true},
};

class Child {
 public:
  explicit Child(const Kind& kind) : kind_(kind) {
    int ends[2];
    if (::pipe2(ends, O_CLOEXEC) != 0) {
      throw std::system_error(errno, std::generic_category(), "no pipe");
    }
    const unique_fd input(ends[0]);
    orders_.reset(ends[1]);
    pass_low_pids();
    const std::string name = std::string("demo-") + kind.name;
    const pid_t parent = ::getpid();
    pid_ = ::fork();
    if (pid_ < 0) {
      throw std::system_error(errno, std::generic_category(), "no child");
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
  bool is_steady() const { return kind_.is_steady; }

  // In the round given, 0 or 1.
  void leak(int round) {
    say("demo: process " + std::to_string(pid_) + " (demo-" + kind_.name + ") " +
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
        say("demo: child " + std::to_string(ended.si_pid) + " has ended too early");
        return End::kChild;
      }
    } else if (signal > 0) {
      return End::kSignal;
    }
  }
}

End leak_in_turn(std::vector<Child>& children, std::chrono::seconds pace) {
  Clock::time_point next = Clock::now() + kSettle;
  Clock::time_point end_of_steady{};
  for (const int round : {0, 1}) {
    const Clock::time_point settled = next + kSettle;
    for (Child& child : children) {
      if (child.is_steady() && round > 0) {
        continue;
      }
      if (const End end = wait_until(next); end != End::kNone) {
        return end;
      }
      child.leak(round);
      end_of_steady = child.is_steady() ? next + kSteady : end_of_steady;
      next += pace;
    }
    next = std::max(next, settled);
  }
  return wait_until(std::max(end_of_steady, Clock::now() + kLastVisit));
}

struct Options {
  std::vector<std::string> kinds{};  // empty for all
  int pace = 3;                      // seconds from one leak to the next
};

std::vector<std::string> kind_names() {
  std::vector<std::string> names;
  for (const Kind& kind : kKinds) {
    names.emplace_back(kind.name);
  }
  return names;
}

int run(const Options& options) {
  block_signals({SIGHUP, SIGQUIT, SIGCHLD});
  std::vector<Child> children;
  for (const Kind& kind : kKinds) {
    const auto& only = options.kinds;
    if ((only.empty() && !kind.is_steady) ||
        std::find(only.begin(), only.end(), kind.name) != only.end()) {
      children.emplace_back(kind);
    }
  }
  // A stalled output must not keep the signals waiting.
  queue_output();
  say("demo: started " + std::to_string(children.size()) +
      (children.size() == 1 && children.front().is_steady()
           ? " child; it leaks for " + std::to_string(kSteady.count()) + " minutes, from "
           : " children; they leak in turn, twice each, from ") +
      std::to_string(kSettle.count()) +
      " seconds on; start \"taskwarden watch\" in another terminal before that");
  const End end = leak_in_turn(children, std::chrono::seconds(options.pace));
  if (end == End::kNone) {
    say("demo: done; all that leaked is released");
  }
  return end == End::kChild ? 1 : 0;
}

}  // namespace

void add_demo_commands(CLI::App& app, std::function<int()>* chosen) {
  const auto options = std::make_shared<Options>();
  CLI::App& command = *app.add_subcommand("demo", "Start programs that leak, to try out a watch");
  command.footer(kFooter);
  command.callback([=] { *chosen = [options] { return run(*options); }; });
  command.add_option("--only", options->kinds, "Leak only this. Can be repeated")
      ->option_text("KIND")
      ->allow_extra_args(false)
      ->check(must_be_one_of(kind_names()));
  command
      .add_option("--pace", options->pace, "Time from one leak to the next, 1 to 3600 (default 3)")
      ->option_text("SECONDS")
      ->check(must_be_number(1, kHour));

  const auto leak = std::make_shared<std::string>();
  CLI::App& child = *app.add_subcommand("demo-child", "What demo starts")->group("");
  child.add_option("KIND", *leak)->required()->check(must_be_one_of(kind_names()));
  child.callback([=] { *chosen = [leak]() -> int { run_demo_child(*leak); }; });
}

}  // namespace host
