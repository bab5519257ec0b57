// The kinds of events that the library has.
#ifndef HOST_COMMON_EVENT_KINDS_H_
#define HOST_COMMON_EVENT_KINDS_H_

#include <cstddef>
#include <vector>

#include "taskwarden/observers.h"

namespace host {

// In the library's order; none is null.
inline std::vector<const taskwarden_event_kind*> event_kinds() {
  std::vector<const taskwarden_event_kind*> kinds;
  while (const auto* const kind = taskwarden_event_kind_at(kinds.size())) {
    kinds.push_back(kind);
  }
  return kinds;
}

// Whether the log has such events. Those of a process that measure nothing (its beginning, its end,
// a change of its name) reach observers only.
inline bool is_logged(const taskwarden_event_kind& kind) {
  return kind.about != TASKWARDEN_ABOUT_PROCESS || *kind.unit != '\0';
}

// Whether they tell of ranks: these are the only ones of the system that measure nothing.
inline bool is_ranking(const taskwarden_event_kind& kind) {
  return kind.about != TASKWARDEN_ABOUT_PROCESS && *kind.unit == '\0';
}

}  // namespace host

#endif  // HOST_COMMON_EVENT_KINDS_H_
