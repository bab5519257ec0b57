// Where a process belongs: its control group, and the unit or container which that stands for.
// Pure.
#ifndef HOST_EXPLAIN_GROUP_PLACE_H_
#define HOST_EXPLAIN_GROUP_PLACE_H_

#include <string>

#include "host/common/control_groups.h"

namespace host {

// Empty where there is none.
struct GroupPlace {
  std::string path{};       // of the unified hierarchy, or of systemd's own
  std::string unit{};       // systemd's: "nginx.service", "session-2.scope"
  std::string container{};  // its name, or the first 12 digits of its id
  std::string runtime{};    // "docker", "podman", "cri-o", "containerd", "lxc", "nspawn" ...
  std::string pod{};        // Kubernetes' id of it
};

GroupPlace place_of(const ControlGroups& groups);

}  // namespace host

#endif  // HOST_EXPLAIN_GROUP_PLACE_H_
