// Which process a pid stands for, from files that make nobody wait. Any thread.
#ifndef HOST_WATCH_PROCESS_IDENTITY_H_
#define HOST_WATCH_PROCESS_IDENTITY_H_

#include <sys/types.h>

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

struct ProcessIdentity {
  std::string name{};       // the short one, any bytes
  uint64_t start_time = 0;  // in clock ticks after boot, as of taskwarden_spare()
  uid_t uid = 0;            // its effective user
};

// The process `pid` of the process file system at `root`; none where there is none.
std::optional<ProcessIdentity> identify(unsigned pid, const std::string& root);

// A name of the library's, "name#pid", without "#pid", of which a long name may have only a part.
std::string_view without_pid(std::string_view name, uint32_t pid);

}  // namespace host

#endif  // HOST_WATCH_PROCESS_IDENTITY_H_
