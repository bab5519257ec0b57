// What the watch takes along when it begins anew in place of itself (execve(2)): in a sealed file
// in memory, of which the new image finds the number in its environment.
#ifndef HOST_WATCH_CARRIED_STATE_H_
#define HOST_WATCH_CARRIED_STATE_H_

#include <sys/types.h>

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/watch/sparing.h"
#include "platform/unique_fd.h"

namespace host {

struct CarriedState {
  std::string comm{};        // the name that ps(1) shows, which an execve(2) by descriptor loses
  uint32_t held_by = 0;      // the pid of the process that held the watch up; 0 for none
  uint32_t baselines = 0;    // which are lost
  int listener = -1;         // the record socket's descriptor; -1 if there is none
  bool is_paused = false;    // or is to be
  bool wants_dump = false;   // a listing was asked for, and not made yet
  uint64_t undelivered = 0;  // records that were lost,
  uint64_t refused_senders = 0;  // and refused
  uint64_t refused_texts = 0;
  std::vector<pid_t> children{};  // as of children_left_behind()
  Sparing sparing{};
  // Anything more, by the name of whose it is: any bytes.
  std::map<std::string, std::string> attachments{};

  bool operator==(const CarriedState&) const = default;
};

// As text and bytes, for the process `pid`: one line of JSON, then the attachments.
std::string carried_text(const CarriedState& state, pid_t pid);

// Takes such a text apart, whatever it holds. None if it is not one of the process `pid`; `*why`
// says why.
std::optional<CarriedState> parse_carried(std::string_view text, pid_t pid, std::string_view* why);

// Puts the state where the next image finds it, and returns what keeps it there; both it and the
// listener then outlive an execve(2). Not ok() on failure, with errno.
unique_fd leave_state(const CarriedState& state);
// Takes that back, for this image goes on.
void withdraw_state(const CarriedState& state);

// What the image before left, if it did; what cannot be used is said, and left aside. Before other
// threads run, since the environment is changed.
std::optional<CarriedState> take_state();

}  // namespace host

#endif  // HOST_WATCH_CARRIED_STATE_H_
