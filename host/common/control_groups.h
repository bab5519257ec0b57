// The control groups of a process and their limits (cgroups(7)): version 2, version 1, and both
// together. Parsing is apart from reading. Any thread.
#ifndef HOST_COMMON_CONTROL_GROUPS_H_
#define HOST_COMMON_CONTROL_GROUPS_H_

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/common/file_text.h"

namespace host {

// The paths in /proc/<pid>/cgroup. In the unified hierarchy one path serves all.
struct ControlGroups {
  std::optional<std::string> unified{};
  std::optional<std::string> memory{};   // of version 1
  std::optional<std::string> pids{};     // of version 1
  std::optional<std::string> systemd{};  // its own, of version 1
};
ControlGroups parse_control_groups(std::string_view text);

// How much more the groups of a process can take, those above them included: the least of
//   limit - (usage - inactive file pages), kB, not below 0
//   limit - tasks
// Nothing where no limit is set or it cannot be read.
struct GroupRoom {
  std::optional<int64_t> memory_kb{};
  std::optional<int64_t> threads{};
};

// Reads them below `root`, where the control groups are mounted as systemd does it.
GroupRoom read_group_room(const ControlGroups& groups, const std::string& root);

// The narrowest memory limit of the groups of a process, those above them included, and what is
// used of it.
struct GroupLimit {
  int64_t limit_kb = 0;
  std::optional<int64_t> used_kb{};
};
// Reads likewise, through `read`. Nothing where there is no limit.
std::optional<GroupLimit> read_memory_limit(const ControlGroups& groups, const std::string& root,
                                            const ReadFn& read);

}  // namespace host

#endif  // HOST_COMMON_CONTROL_GROUPS_H_
