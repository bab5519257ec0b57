// Where the measuring code hands its news to the event framework. Every poll is synchronous: hubs
// and handler are done when it returns. All that hosts can call return 0. Cycle's thread only. Any
// of them may be the first to create the manager; without a hub for its source a poll delivers
// nothing.
//
// Includes no other area's header, so that readers on lower floors can end by polling. No pointer
// may be null, and none is kept, but for a process's slot that a rank collector takes in.
#ifndef AUDIT_POLL_H_
#define AUDIT_POLL_H_

#include <stdint.h>

#include "taskwarden/export.h"

struct tw_meminfo_t;
struct tw_process_entry;
struct tw_process_list;

// The memory summary was read: runs the memory hub.
TW_EXPORT int32_t tw_event_poll_meminfo(tw_meminfo_t* meminfo);

// A watched process was inspected: runs the per-process hub, then offers the process to the rank
// collector of its class, unless its name begins with "zygote".
TW_EXPORT int32_t tw_event_poll_process_entry(tw_process_list* list, tw_process_entry* entry);

// A pass over the whole table is complete: runs the process-count hub, then announces the changes
// of each ranking, if any, and empties them.
TW_EXPORT int32_t tw_event_poll_process_list(tw_process_list* list);

// A process has gone (Event_ProcExited, its slot) or goes by another name (Event_ProcRenamed, a
// copy of the slot as it was): delivers `id` directly.
TW_EXPORT int32_t tw_event_poll_proc2exit(tw_process_entry* entry, int32_t id);

// Delivers Event_ProcCreated directly. For hosts; nothing in the library calls it.
TW_EXPORT int32_t tw_event_poll_newproc(tw_process_entry* entry);

#endif  // AUDIT_POLL_H_
