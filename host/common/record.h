// One event record as a watchdog sends it, and how its text is taken apart.
//
// On the wire a record is "pid@@value@@event@@name@@detail" and one NUL, alone on a connection.
#ifndef HOST_COMMON_RECORD_H_
#define HOST_COMMON_RECORD_H_

#include <sys/types.h>

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

inline constexpr size_t kRecordMax = 8191;  // bytes of a record before its NUL
inline constexpr size_t kEventMax = 29;
inline constexpr size_t kNameMax = 99;
inline constexpr size_t kDetailMax = 6143;

struct Record {
  int32_t pid = 0;
  int32_t value = 0;   // kB or a count, as the event has it
  std::string event;   // [A-Za-z0-9_]+
  std::string name;    // any bytes; a watchdog's own end in "#" and the pid
  std::string detail;  // any bytes; empty from today's senders
};

// Who made a connection, as the kernel vouches for it (SO_PEERCRED). The pid is 0 for a process
// outside our pid namespace.
struct Sender {
  pid_t pid = 0;
  uid_t uid = 0;
};

// Takes `text` (without the NUL) apart. Names and details are not escaped, so that a name may hold
// the separator: it comes out whole when it ends in "#" and the record's pid, or was cut at 63
// bytes on the way there, or when the detail is empty.
//
// Result: the record, or nothing with the reason in `*why`, a phrase about the record ("its pid is
// ...") that stays valid for good. Looks at nothing but its arguments; any thread.
std::optional<Record> parse_record(std::string_view text, std::string_view* why);

}  // namespace host

#endif  // HOST_COMMON_RECORD_H_
