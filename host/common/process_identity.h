// Which process a pid stands for, from files that make nobody wait. Any thread.
#ifndef HOST_COMMON_PROCESS_IDENTITY_H_
#define HOST_COMMON_PROCESS_IDENTITY_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

struct ProcessIdentity {
  std::string name{};       // the short one, any bytes
  uint64_t start_time = 0;  // field 22 of its stat file (proc(5)): clock ticks after boot
  uid_t uid = 0;            // its effective user
};

// The process `pid` of the process file system at `root`; none where there is none.
std::optional<ProcessIdentity> identify(unsigned pid, const std::string& root);

// The name and the start of the text of a stat file; none where it has none. The name may hold
// anything, also blanks and brackets.
std::optional<ProcessIdentity> parse_stat(std::string_view stat);

}  // namespace host

#endif  // HOST_COMMON_PROCESS_IDENTITY_H_
