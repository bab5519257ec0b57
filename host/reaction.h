// Running a command for records: never through a shell, some at once at the most, and not again for
// the same process and event for a while.
#ifndef HOST_REACTION_H_
#define HOST_REACTION_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "host/process_view.h"
#include "host/record.h"

namespace host {

// Must live until no command runs any more, or the process ends.
class Reaction {
 public:
  using Clock = std::chrono::steady_clock;

  struct Options {
    std::vector<std::string> command{};  // the program, sought in PATH, and its arguments
    uint32_t at_once = 4;
    std::chrono::seconds cooldown{0};
  };

  explicit Reaction(Options options) : options_(std::move(options)) {}

  // Starts the command for `record`, with what is known in its environment as TASKWARDEN_TIME,
  // _PID, _VALUE, _EVENT, _NAME, _DETAIL, _SENDER_UID, _SENDER_PID, _CGROUP and _COMMAND_LINE (its
  // words with blanks between them); what is not known is not set. It reads nothing, and its output
  // goes to our standard error. Says so when the command cannot be started, or ends with another
  // status than 0. One thread at a time.
  void react(const Record& record, const Sender& sender, const ProcessView& view,
             std::chrono::system_clock::time_point arrival);

  // Whether one is due at `now`, for the event and process of `record`; then it is not for the time
  // of the cooldown. One thread at a time, as above.
  bool is_due(const Record& record, Clock::time_point now);

  // Waits until no command runs.
  void wait();

  // How many records went without their command, as a phrase; empty if none did. Any thread.
  std::string omissions() const;

 private:
  using Key = std::pair<std::string, std::string>;  // a process and an event

  bool reserve_place();
  void watch_over(pid_t child);

  const Options options_;
  std::map<Key, Clock::time_point> quiet_until_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  uint32_t running_ = 0;
  uint64_t omitted_ = 0;
};

}  // namespace host

#endif  // HOST_REACTION_H_
