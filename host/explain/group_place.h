// Where a process belongs: its control group, and the unit or container which that stands for.
// Pure.
#ifndef HOST_EXPLAIN_GROUP_PLACE_H_
#define HOST_EXPLAIN_GROUP_PLACE_H_

#include <optional>
#include <string>
#include <string_view>

namespace host {

// Empty where there is none.
struct GroupPlace {
  std::optional<std::string> path{};         // of the unified hierarchy, or of systemd's own
  std::optional<std::string> memory_path{};  // of the memory controller, where that is of version 1
  std::string unit{};                        // systemd's: "nginx.service", "session-2.scope"
  std::string container{};                   // its name, or the first 12 digits of its id
  std::string runtime{};  // "docker", "podman", "cri-o", "containerd", "lxc", "nspawn" ...
  std::string pod{};      // Kubernetes' id of it
};

// From the text of /proc/PID/cgroup (cgroups(7)).
GroupPlace parse_cgroup(std::string_view text);

}  // namespace host

#endif  // HOST_EXPLAIN_GROUP_PLACE_H_
