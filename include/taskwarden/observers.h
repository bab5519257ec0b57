// What the watch sees, as data: each event with its explanation, the table of processes, and the
// facts about the kinds of events. In plain C, for hosts in any language.
//
// Events, tables and kinds begin with their size in the library; rows are `row_size` bytes apart. A
// later library adds members at the end and changes no others, so a host may read those that lie
// within the size. Strings are bytes with a length: other programs chose them, and they may hold
// anything but NUL. The library owns all that it passes to an observer. Except for kinds, it is
// valid only until the observer returns.
//
// Observers are called on the cycle's thread, between its readings, and the cycle waits for them.
// The time that an observer takes counts as the slice's and the pass's, and whoever sets an
// observer meanwhile waits for it: it should return within a few milliseconds.
//
// An observer may call whatever takes "any thread", also taskwarden_notify(). It must not set an
// observer, call the event polls, or wait for a thread that sets one, or for a lock that such a
// thread holds. An observer that throws a C++ exception is removed, and the failure log says so; a
// library built without exceptions (Android) cannot catch it. An event that is being told while its
// observer is removed may reach neither the observer nor, without text, the log.
#ifndef TASKWARDEN_OBSERVERS_H_
#define TASKWARDEN_OBSERVERS_H_

#include <stddef.h>
#include <stdint.h>

#include "taskwarden/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// `length` bytes, not terminated. Empty: `length` is 0, and `data` may be null.
typedef struct taskwarden_bytes {
  const char* data;
  size_t length;
} taskwarden_bytes;

// ---- Kinds of events

// What an event is about.
enum {
  TASKWARDEN_ABOUT_PROCESSES = 16,  // how many there are, or which are the largest
  TASKWARDEN_ABOUT_PROCESS = 32,    // one process
  TASKWARDEN_ABOUT_MEMORY = 48      // the machine's memory
};

// One kind of event. Strings are NUL-terminated, static, and in English.
typedef struct taskwarden_event_kind {
  size_t size;
  int32_t id;          // such as 0x400
  int32_t about;       // TASKWARDEN_ABOUT_
  const char* name;    // "Event_ThreadAmount"
  const char* what;    // what is measured: "threads"
  const char* unit;    // "kB", "threads" and so on; empty where nothing is measured
  const char* rule;    // when it is raised
  int32_t has_record;  // 1: it can send a record to the system service
} taskwarden_event_kind;

// The kind number `index`, from 0 on, in the order of the checks; null past the last. Static. Any
// thread, at any time.
TW_EXPORT const taskwarden_event_kind* taskwarden_event_kind_at(size_t index);

// ---- Events

// What a row of an event tells. Members that a kind does not name are 0.
enum {
  // A figure that the event was raised for: `name`, `value`.
  TASKWARDEN_ROW_MEASURED = 1,
  // A figure of the explanation: `name`, `value`.
  TASKWARDEN_ROW_FIGURE = 2,
  // An entry of the inventory that was taken, all of them: `name` with its count in `value`, or a
  // memory division with its `number`, resident kB in `value`, and `areas`.
  TASKWARDEN_ROW_INVENTORY = 3,
  // What grew since the inventory before: as above, with `increase`, of divisions also
  // `areas_increase`.
  TASKWARDEN_ROW_GROWN = 4,
  // The division that grew most: `name`, `number`, `increase`.
  TASKWARDEN_ROW_LARGEST_INCREASE = 5,
  // A place in a ranking, largest first: `number` from 1, `pid`, `name`, `start_time`, kB in
  // `value`; `is_new` since the last such event.
  TASKWARDEN_ROW_RANKED = 6,
  // Who came into the ranking since the last such event, and who was pushed out: `pid`, `name`,
  // `start_time`, kB in `value`. If the process has ended since, all of these are 0.
  TASKWARDEN_ROW_CAME = 7,
  TASKWARDEN_ROW_WENT = 8,
  // A cache of the kernel's objects, largest first: `number` from 1, `name`, `objects`,
  // `object_bytes`, and in `value` their product, of which the low 32 bits are kept.
  TASKWARDEN_ROW_CACHE = 9,
  // The new name of a process: `name`.
  TASKWARDEN_ROW_NEW_NAME = 10
};

typedef struct taskwarden_event_row {
  int32_t kind;     // TASKWARDEN_ROW_
  uint32_t number;  // a division's, as in the log, or a rank
  taskwarden_bytes name;
  int64_t value;
  int64_t increase;
  uint32_t areas;
  int32_t areas_increase;
  uint32_t pid;
  int32_t is_new;
  uint64_t start_time;
  int32_t objects;
  int32_t object_bytes;
} taskwarden_event_row;

// What became of an event's record.
enum {
  TASKWARDEN_RECORD_NONE = 0,  // the event sends none, or not this time
  TASKWARDEN_RECORD_SENT = 1,
  TASKWARDEN_RECORD_LOST = 2  // the service could not be reached or did not take it
};

typedef struct taskwarden_event {
  size_t size;
  const taskwarden_event_kind* kind;  // null for an id that the library does not know
  int32_t id;
  int32_t record;       // TASKWARDEN_RECORD_
  int64_t time_ms;      // wall clock, in ms since 1970
  uint32_t pid;         // 0 where the event is about no process
  int32_t is_compared;  // 1: there was an inventory before this one
  // When the process started, in clock ticks after boot: field 22 of /proc/<pid>/stat (proc(5)),
  // which with the pid tells a process from all others of this boot. While an observer is set, it
  // is read at the first visit and after a change of name (kernel tasks: at the first visit alone);
  // 0 while unknown. A pid that is used again under the same name between two visits keeps the old
  // one.
  uint64_t start_time;
  // Its name, "name#pid", or "<dummy pid>" for one whose status was never read. Of a change of
  // name, the old one.
  taskwarden_bytes process;
  // The level that was measured against, and what was found, in the kind's unit; both 0 where
  // nothing is measured. They are whole where the log shows the low 32 bits.
  int64_t before;
  int64_t after;
  const taskwarden_event_row* rows;  // in the order of the log; `row_size` bytes apart
  size_t row_count;
  size_t row_size;
} taskwarden_event;

typedef void (*taskwarden_event_fn)(void* context, const taskwarden_event* event);

// Flags of taskwarden_observe_events().
enum {
  TASKWARDEN_WITH_TEXT = 0,    // events are reported as text as well, as without an observer
  TASKWARDEN_WITHOUT_TEXT = 1  // what an observer gets is not reported as text
};

// Has `observer` called for each event from now on, once, when its explanation is complete: with
// what the log says, from the same values. `context` is the host's and passed on. Null takes the
// observer out. There is one at a time.
//
// Result: 0; -1 with nothing changed and errno EDEADLK when called from inside an observer, EINVAL
// for other flags. When the call has returned 0, the observer before is not running and will not be
// called again.
// Thread: any, at any time.
TW_EXPORT int taskwarden_observe_events(taskwarden_event_fn observer, void* context, int flags);

// ---- The table

// What the last visit to a process could read. A number that it could not read is 0 in the row:
// another user's open files, for example, or the memory of a kernel task, which has none. The name
// stays as it was last read.
enum {
  TASKWARDEN_KNOWN_NAME = 1 << 0,
  TASKWARDEN_KNOWN_STATE = 1 << 1,
  TASKWARDEN_KNOWN_PARENT = 1 << 2,
  TASKWARDEN_KNOWN_DESCRIPTOR_TABLE = 1 << 3,
  TASKWARDEN_KNOWN_PEAK = 1 << 4,
  TASKWARDEN_KNOWN_RESIDENT = 1 << 5,
  TASKWARDEN_KNOWN_THREADS = 1 << 6,
  TASKWARDEN_KNOWN_OPEN_FILES = 1 << 7,
  TASKWARDEN_KNOWN_MAPPED = 1 << 8,  // all five sizes; read of interesting processes only
  TASKWARDEN_KNOWN_START_TIME = 1 << 9
};

typedef struct taskwarden_process {
  size_t size;  // set by the host: sizeof(taskwarden_process); then the bytes that were filled
  uint32_t pid;
  uint32_t known;         // TASKWARDEN_KNOWN_ bits
  taskwarden_bytes name;  // "name#pid"
  uint64_t start_time;    // as in taskwarden_event
  int64_t known_since;    // when its present name was first seen, in seconds since 1970,
  int64_t visited;        // and when it was last visited; both 0 for kernel tasks, and at first
  int32_t parent;         // pid
  int32_t state;          // a letter: 'R', 'S', 'D', 'Z' and so on
  int32_t threads;
  int32_t open_files;
  int32_t descriptor_table;  // descriptors that it has room for
  int32_t is_watched;        // 1: it has a baseline, so that events can be raised for it
  int32_t is_interesting;    // 1: its memory map is read
  int32_t is_kernel_task;    // 1: its parent is pid 2
  uint64_t resident_kb;
  uint64_t peak_kb;
  uint64_t dalvik_kb;  // mapped sizes
  uint64_t heap_kb;
  uint64_t ashmem_kb;
  uint64_t kgsl_kb;
  uint64_t dmabuf_kb;
} taskwarden_process;

// The table as it stands after a slice of a pass, and the figures of that pass so far.
typedef struct taskwarden_table {
  size_t size;
  int32_t is_complete;    // 1: the pass has ended with this slice
  uint32_t pass;          // its number, from 1
  uint32_t slice;         // the slice's number within it, from 1
  uint32_t processes;     // in the table
  uint32_t native;        // visited in this pass: children of pid 1,
  uint32_t runtime;       // of a zygote,
  uint32_t kernel;        // of pid 2
  uint32_t unreadable;    // visited in this pass, but status, descriptors or maps could not be read
  uint32_t duration_ms;   // since the pass began, its rests included
  uint32_t overloads;     // completed passes that took 10 s or longer
  uint64_t records_sent;  // since the start, those of reportEvent() included
  uint64_t records_lost;
  const void* list;  // the library's own
} taskwarden_table;

typedef void (*taskwarden_table_fn)(void* context, const taskwarden_table* table);

enum {
  TASKWARDEN_EVERY_PASS = 0,  // the table is shown when a pass has ended
  TASKWARDEN_EVERY_SLICE = 1  // and after each slice before
};

// Has `observer` called with the table after each pass or slice (`when`). Nothing is copied for it:
// it asks for the rows that it wants. Null takes the observer out. There is one at a time.
//
// Result: 0; -1 with nothing changed and errno EDEADLK when called from inside an observer, EINVAL
// for another `when`. When the call has returned 0, the observer before is not running and will not
// be called again.
// Thread: any, at any time.
TW_EXPORT int taskwarden_observe_table(taskwarden_table_fn observer, void* context, int when);

// Fills `process` with the process that follows `process->pid` in the table, from the newest to the
// oldest, or with the first if that is 0. `process->size` tells how much of it the host knows.
//
// Result: 1; 0 with nothing changed at the end, for a pid that the table does not have, and for a
// size that does not reach past `pid`. Thread: inside a table observer only, with the table that it
// was given. Allocates nothing.
TW_EXPORT int taskwarden_next_process(const taskwarden_table* table, taskwarden_process* process);

#ifdef __cplusplus
}
#endif

#endif  // TASKWARDEN_OBSERVERS_H_
