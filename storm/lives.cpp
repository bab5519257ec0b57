#include "lives.h"

#include <malloc.h>
#include <pthread.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <string>

#include "proctable/pool.h"
#include "proctable/scan.h"
#include "surroundings.h"

namespace {

constexpr size_t kResidentKb = 8192;
constexpr size_t kLockedKb = 16384;

// So many live at once. One pid in kEach has a slot on each page of the table; one in kFew comes by
// sooner.
constexpr int kAtOnce = 1000;
constexpr int kEach = 11;
constexpr int kFew = 110;
constexpr int kQuick = 4400;

// Generations of processes, of which each has higher pids than the one before.
class Generations {
 public:
  // Real ones, or on `tree` if that is not null; one pid in `step`, below `limit`.
  Generations(MadeTree* tree, int step, int limit) : tree_(tree), step_(step), limit_(limit) {}
  ~Generations() { end(); }
  Generations& operator=(Generations&&) = delete;  // nor any copy

  static size_t count(int step, int limit) {
    return static_cast<size_t>(limit / (step * kAtOnce) + 1);
  }
  // The last generation ends, and the next begins.
  void go_on() {
    end();
    for (int i = 0; i < kAtOnce && next_ < limit_; ++i, next_ += step_) {
      pids_.push_back(tree_ != nullptr ? make() : start());
    }
  }

 private:
  void end() {
    for (const pid_t pid : pids_) {
      if (tree_ != nullptr) {
        tree_->remove(pid);
      } else {
        kill(pid, SIGKILL);
      }
    }
    for (const pid_t pid : pids_) {
      if (tree_ == nullptr) {
        waitpid(pid, nullptr, 0);
      }
    }
    pids_.clear();
  }
  pid_t make() const {
    tree_->put({.pid = next_, .name = "life" + std::to_string(next_)});
    return next_;
  }
  pid_t start() const {
    set_next_pid(next_);
    const pid_t pid = fork();
    if (pid == 0) {
      prctl(PR_SET_PDEATHSIG, SIGKILL);
      for (;;) {
        pause();
      }
    }
    require(pid >= next_, "the pid asked for was not given");
    return pid;
  }

  MadeTree* tree_;
  int step_;
  int limit_;
  int next_ = static_cast<int>(TW_FIRST_TRACKED_PID);
  std::vector<pid_t> pids_;
};

// On a made tree, unless pids can be chosen and `real` are wanted.
Storm round_of(const std::string& whose, int step, int limit, bool real) {
  Storm storm = {.what = "one process in " + std::to_string(step) + " of the pids below " +
                         std::to_string(limit) + ", once round" + whose,
                 .longest_rest_ms = 1,
                 .still = true,
                 .resident_limit_kb = kResidentKb};
  if (!real || !own_pid_namespace()) {
    storm.what += " (on a made tree)";
    storm.tree = make_tree();
    storm.tree->write("sys/kernel/pid_max", std::to_string(TW_LARGEST_PID_LIMIT));
  }
  const auto lives = std::make_shared<Generations>(storm.tree.get(), step, limit);
  storm.steps.assign(Generations::count(step, limit), [lives] { lives->go_on(); });
  return storm;
}

constexpr int kAllPids = TW_LARGEST_PID_LIMIT;

// A limit of the host, as of setrlimit(2).
void limit_host(__rlimit_resource_t what, rlim_t bytes) {
  const rlimit limit = {bytes, bytes};
  require(setrlimit(what, &limit) == 0, "setrlimit");
}

// What runs on a build server in the two seconds from one pass to the next: 6 processes begin. Most
// live for one to three passes. Every 20th lives for 10, and has ever more threads.
class BuildServer {
 public:
  explicit BuildServer(MadeTree* tree) : tree_(tree) {}

  void go_on() {
    ++now_;
    for (int i = 0; i < kBegin; ++i) {
      ++begun_;
      lives_.push_back({.pid = next_pid(), .grows = begun_ % 20 == 0, .begin = now_});
    }
    for (Life& life : lives_) {
      const int age = now_ - life.begin;
      if (age >= (life.grows ? kLong : 1 + life.pid % 3)) {
        tree_->remove(life.pid);
        life.pid = 0;
      } else if (age == 0 || life.grows) {
        tree_->put({.pid = life.pid,
                    .name = (life.grows ? "test" : "cc") + std::to_string(life.pid % 97),
                    .threads = 1 + age * 2,
                    .fds = 1});
      }
    }
    std::erase_if(lives_, [](const Life& life) { return life.pid == 0; });
  }

 private:
  static constexpr int kBegin = 6, kLong = 10;
  struct Life {
    int pid;
    bool grows;
    int begin;  // the pass
  };

  // 15 of 16 processes end unseen. All pids are used up in a day.
  int next_pid() {
    constexpr int kPerLife = 16;
    const int pid = next_;
    next_ = next_ + kPerLife < kAllPids ? next_ + kPerLife : 1000;
    return pid;
  }

  MadeTree* tree_;
  int now_ = 0, begun_ = 0, next_ = 1000;
  std::deque<Life> lives_;
};

}  // namespace

Storm once_round(bool quick) {
  return round_of("", quick ? kQuick : kEach, kAllPids, true);
}

Storm day(bool quick) {
  const size_t passes = quick ? 900 : 43200;
  Storm storm = {.what = std::to_string(passes / 30) +
                         " min of a build server, 3 processes a second (on a made tree)",
                 .whole_clock = true,
                 .still = true,
                 .tree = make_tree(),
                 .resident_limit_kb = kResidentKb};
  storm.longest_rest_ms = 0;
  storm.tree->write("sys/kernel/pid_max", std::to_string(kAllPids));
  const auto server = std::make_shared<BuildServer>(storm.tree.get());
  storm.steps.assign(passes, [server] { server->go_on(); });
  return storm;
}

Storm locked(bool quick) {
  Storm storm =
      round_of(", by a host that locks its memory", quick ? kQuick : kFew, kAllPids, true);
  storm.prepare_host = [] {
    // Else a thread's stack and heap alone would lock 72 MiB.
    pthread_attr_t small;
    pthread_attr_init(&small);
    pthread_attr_setstacksize(&small, size_t{256} << 10);
    pthread_setattr_default_np(&small);
    mallopt(M_ARENA_MAX, 1);
    require(mlockall(MCL_FUTURE) == 0, "mlockall");
  };
  storm.locked_limit_kb = kLockedKb;
  return storm;
}

Storm charged(bool quick) {
  Storm storm =
      round_of(", by a host charged for what it reserves", quick ? kQuick : kFew, kAllPids, false);
  storm.tree->write("sys/vm/overcommit_memory", "2\n");
  // Stacks and the heap of the cycle's thread are reserved as well.
  storm.prepare_host = [] { limit_host(RLIMIT_DATA, rlim_t{256} << 20); };
  return storm;
}

Storm refused(bool quick) {
  Storm storm = round_of(", by a host without room for more slots", quick ? 100 : kEach,
                         TW_PROCESS_SLOTS, false);
  storm.prepare_host = [] { limit_host(RLIMIT_AS, rlim_t{512} << 20); };
  return storm;
}
