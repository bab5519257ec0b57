// Running a command for records and verdicts: never through a shell, some at once at the most, and
// not again for the same process and event for a while.
#ifndef HOST_LISTEN_REACTION_H_
#define HOST_LISTEN_REACTION_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

namespace host {

// Names without "TASKWARDEN_", and values.
using HookFields = std::vector<std::pair<std::string, std::string>>;

class Reaction {
 public:
  using Clock = std::chrono::steady_clock;

  struct Options {
    std::vector<std::string> command{};  // the program, sought in PATH, and its arguments
    uint32_t at_once = 4;
    std::chrono::seconds cooldown{0};
    std::chrono::seconds timeout{30};  // for one command
  };

  // Starts a thread that looks after the commands. Where none can be had, they are looked after
  // at the next occasion.
  explicit Reaction(Options options);
  ~Reaction();

  // What a command is run for: a process, and an event of it or a state of a resource.
  using Occasion = std::pair<std::string, std::string>;

  // Starts the command for `occasion`, with `fields` in its environment, each name after
  // "TASKWARDEN_". It reads nothing, and its output goes to our standard error. Each runs in a
  // process group of its own, which gets SIGTERM after the timeout, and SIGKILL kGrace later. Says
  // so when the command cannot be started, takes too long, or ends with another status than 0, and
  // when the first occasion in a row goes without. One thread at a time.
  void react(const Occasion& occasion, const HookFields& fields);

  // Whether one is due at `now`; then it is not for the time of the cooldown. One thread at a time,
  // as above.
  bool is_due(const Occasion& occasion, Clock::time_point now);

  // Waits until no command runs.
  void wait();

  // How many records and verdicts went without their command, as a phrase; empty if none did. Any
  // thread.
  std::string omissions() const;

 private:
  struct Command {
    pid_t child;
    Clock::time_point deadline;  // of its next signal
    int next_signal;             // 0: none any more
  };

  // From SIGTERM to SIGKILL.
  static constexpr std::chrono::seconds kGrace{5};

  bool has_place();
  void look_after();
  void tend(std::unique_lock<std::mutex>& lock);

  const Options options_;
  std::map<Occasion, Clock::time_point> quiet_until_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::vector<Command> running_;
  uint64_t omitted_ = 0;
  int telling_ = 0;  // threads that say what became of commands
  bool omitting_ = false;
  bool ended_ = false;
  std::thread looker_;
};

}  // namespace host

#endif  // HOST_LISTEN_REACTION_H_
