// An event as a JSON object, from what the library's observer gets.
#ifndef HOST_WATCH_EVENT_OBJECT_H_
#define HOST_WATCH_EVENT_OBJECT_H_

#include <cstddef>

#include "host/common/json_line.h"
#include "taskwarden/observers.h"

namespace host {

// An explanation shows no more rows than this, and how many more there are.
inline constexpr size_t kMostRows = 200;

// Its members, each where the event has it:
//   time, event         UTC with milliseconds; the name of the kind
//   pid, name, start    the process; when it started, in clock ticks after boot
//   before, after       its value, in the kind's unit
//   tasks, mem_free_kb  and so on: the figures of an event of the system
//   explanation         figures, and arrays of objects: "threads" and "created", "files" and
//                       "opened", "divisions", "ranking", "largest"; of an inventory what the log
//                       lists. Beyond kMostRows in an array, "more_rows" counts them.
// Null for an event that the log does not have (is_logged()), or that is none of the library's
// kinds. Strings are the bytes that came.
Json event_object(const taskwarden_event& event);

}  // namespace host

#endif  // HOST_WATCH_EVENT_OBJECT_H_
