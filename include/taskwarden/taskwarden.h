// Task Warden's entry points for a host program, callable from C and from any language that can
// call C. Load the library, redirect its two outputs if you like, give one thread to
// taskwarden_start(), and pause and resume it from any other thread with taskwarden_notify().
//
// Nothing here ends the host, raises a signal in it, or throws, exhausted memory apart. Outputs
// never hold up the cycle except by what the host's own sink does and by a standard output that
// does not drain; a call that writes, or changes the sink, waits for the output in progress
// likewise.
#ifndef TASKWARDEN_TASKWARDEN_H_
#define TASKWARDEN_TASKWARDEN_H_

#include <stddef.h>
#include <stdint.h>

#include "taskwarden/export.h"

#ifdef __cplusplus
extern "C" {
#endif

// Runs the watchdog on the calling thread: scans the process file system, inspects every process
// of pid 300 and above in slices of about 60 ms every 2000 ms, and reports what grew. Does not
// return while there are processes to watch.
//
// Result: TASKWARDEN_CANNOT_READ when the process file system cannot be opened; a value of 0 or
// more, without further meaning, when a scan leaves the table empty. Both are logged first. All
// state stays as it was, and a further call goes on with it. TASKWARDEN_IS_RUNNING, at once and
// with nothing changed, while another thread is in this call. errno is unspecified afterwards. A
// lack of descriptors does not end it: the directory of processes is kept open. Thread: one thread
// of the host's, for good. The library starts no thread of its own. The thread may be cancelled
// (pthread_cancel(3)): that takes effect in the next rest, with nothing locked, and the call can be
// made again. No signal is blocked; one that interrupts a rest makes it shorter, except that from
// the sixth interrupted rest in a row on each is slept to its end.
TW_EXPORT int32_t taskwarden_start(void);

enum { TASKWARDEN_CANNOT_READ = -1, TASKWARDEN_IS_RUNNING = -2 };

// Requests a pause of the cycle (lowest bit of `pause` set) or withdraws it (clear). Only that bit
// is looked at: 2 resumes. A pause takes effect at the end of the pass under way, after the rest
// that follows it, and lasts until withdrawn; the next pass begins with a fresh scan.
// Thread: any, at any time, also before taskwarden_start(). Not from a signal handler. Cannot fail.
TW_EXPORT void taskwarden_notify(int pause);

// Asks the cycle to report two listings: the processes whose numbers look suspicious, and each
// interesting process with its memory by division. The cycle's thread writes them when the pass
// under way has ended and rested, or at once while it is paused; requests made before that are one.
// While paused, the wake-up that serves it reports the end and the new beginning of the pause.
// Thread: any, at any time; one made before taskwarden_start() is served at the end of the first
// pass. Not from a signal handler. Cannot fail.
TW_EXPORT void taskwarden_request_dump(void);

// The two outputs that a sink tells apart.
enum {
  TASKWARDEN_OUTPUT_REPORT = 0,  // progress, dumps, event explanations; `tag` is null
  TASKWARDEN_OUTPUT_LOG = 1      // failures, all at error priority, under `tag` (may be null)
};

// Receives one text, exactly as formatted: `length` bytes followed by a NUL that is not counted.
// The text is not always one line, does not always end in a line feed, and is not always UTF-8:
// it quotes names that other programs chose. `tag` and `text` are the library's and are valid only
// during the call. Calls never overlap. They come on the cycle's thread and on any thread that
// calls into this library, under locks of the library's: a sink must not throw, must not call back
// into it, and must not wait for a lock that the host holds while it calls.
typedef void (*taskwarden_output_fn)(void* context, int output, const char* tag, const char* text,
                                     size_t length);

// Sends both outputs to `sink`, which is given `context` (owned by the host) at every call. A null
// sink restores the default: reports to standard output as they are, log lines to standard error
// as "E/tag: text" ("E/: text" without a tag) with a final line feed added where there is none.
// When the call returns, the previous sink is not running and will not be called again.
// A library built with Android's own log and reporter writes to those, and calls no sink ever.
// Thread: any, at any time, but not from inside a sink. Cannot fail.
TW_EXPORT void taskwarden_set_output(taskwarden_output_fn sink, void* context);

// Watches the process file system mounted at `directory` instead of /proc: a container that has
// the machine's own mounted elsewhere. The path is copied; give it absolute and without a trailing
// slash. It is at most 127 bytes long.
//
// Result: 0, or -1 with errno EINVAL (null or empty) or ENAMETOOLONG, the root unchanged. Whether
// the directory exists is not looked at: taskwarden_start() says so.
// Thread: any one, before taskwarden_start() and before any reader is called.
TW_EXPORT int taskwarden_set_proc_root(const char* directory);

// ---- What goes beyond the defaults. All of these are off until called.

// Has records sent only to a service of root, of the user that this process runs as, or of one of
// the `count` users at `users` (user ids, copied; null for none). Any process in the same network
// namespace can take the service's name. For one of another user a record counts as lost, with the
// log lines of a failed connection.
//
// Result: 0, or -1 with errno EINVAL for more than 16 users, nothing changed.
// Thread: any, at any time. A later call replaces the users.
TW_EXPORT int taskwarden_limit_receivers(const uint32_t* users, size_t count);

// Gives what is kept to explain growth, the inventories of open files and threads of all processes
// together with the one being taken, at most about `bytes`; 0 for no limit, the default. Beyond
// that the largest are kept in a shorter form: the names that occur most, and the rest as one. A
// line of the explanation says so. Thread: any, before taskwarden_start().
TW_EXPORT void taskwarden_limit_inventories(size_t bytes);

// Leaves the memory of a process alone: its command line, maps and smaps are not read, while
// `is_spared` is 1; 0 takes that back. A read of these can wait for as long as the process or its
// file systems like. The process is known by its pid and start time (see taskwarden_event). It goes
// by its short name meanwhile, and its other numbers are read.
//
// Result: 0, or -1 with errno ENOSPC when 64 processes are spared already.
// Thread: any, at any time.
TW_EXPORT int taskwarden_spare(uint32_t pid, uint64_t start_time, int is_spared);

// The same for all processes whose effective user is `uid`, or for all there are: a user can make
// any number of processes that let their readers wait. While users are spared, each visit looks up
// whose the process is.
//
// Result: 0, or -1 with errno ENOSPC when 16 users are spared already; everybody counts as one.
// Thread: any, at any time.
TW_EXPORT int taskwarden_spare_user(uint32_t uid, int is_spared);

#define TASKWARDEN_EVERYBODY UINT32_MAX  // no user has this id

// Has a visit read only what may have changed, while `only_what_ran` is 1; 0, the default, has it
// read every process. A process whose threads have not run since its numbers were last read, by its
// CPU clock (clock_getcpuclockid(3)), keeps them; all else of its visit happens. Read all the same
// is what is new, was renamed or has no baseline yet, what was running or in uninterruptible sleep
// at the last reading, what has lost its parent or shares memory or descriptors with it, what is
// interesting, what had an event in its last five visits, and every process at each 30th visit.
//
// So up to 30 visits go by until this is seen of a process that does not run meanwhile: pages
// reclaimed or brought in by others; a descriptor installed by others, or through a table shared
// with another than its parent; a name changed from outside; a new parent, unless its own was
// watched; the effect of taskwarden_spare(). What woke in the last tick of the scheduler is seen a
// visit late. The directory of processes is listed only when processes were made or ended, and at
// every tenth pass. Every pass is followed by a rest.
//
// It takes a process file system that shows the pids of this process's own pid namespace; where it
// does not, every process is read, and the first start says so in the log.
// Thread: any; takes effect at the next taskwarden_start(). Cannot fail.
TW_EXPORT void taskwarden_visit_only_what_ran(int only_what_ran);

// The file that a thread reads.
enum {
  TASKWARDEN_READS_NOTHING = 0,
  TASKWARDEN_READS_DIRECTORY = 1,  // of processes
  TASKWARDEN_READS_MEMINFO = 2,
  TASKWARDEN_READS_SLABINFO = 3,
  TASKWARDEN_READS_STATUS = 4,
  TASKWARDEN_READS_COMMAND_LINE = 5,
  TASKWARDEN_READS_OPEN_FILES = 6,
  TASKWARDEN_READS_MAPS = 7,
  TASKWARDEN_READS_SMAPS = 8,
  TASKWARDEN_READS_THREADS = 9,
  TASKWARDEN_READS_STAT = 10
};

typedef struct taskwarden_progress {
  size_t size;                 // set by the host: sizeof(taskwarden_progress)
  int32_t is_running;          // 1: a thread is in taskwarden_start()
  int32_t is_paused;           // 1: it waits for the end of a pause
  uint64_t steps;              // rises with each process visited and each rest begun or ended
  uint32_t passes;             // completed
  uint32_t slots;              // one past the last pid that can be watched; 0 before the start
  int32_t slots_were_refused;  // 1: the system refused memory for the higher pids that there may be
  int32_t reads;               // TASKWARDEN_READS_: what is being read right now,
  uint32_t reads_pid;          // of which process; 0 for none
  int64_t reads_since_ms;      // and since when, in ms of CLOCK_MONOTONIC; exact to some ms
  uint32_t baselines;          // processes that have one, so that events can be raised for them
} taskwarden_progress;

// Tells how far the cycle has come and what it is reading. A cycle that waits in the kernel for a
// file of a process shows here. `progress->size` tells how much of the structure the host knows.
// Thread: any, at any time; waits for nothing. Cannot fail.
TW_EXPORT void taskwarden_get_progress(taskwarden_progress* progress);

#ifdef __cplusplus
}

// Whether taskwarden_start() found itself running as the super-user (uid 0) or the shell user
// (uid 2000). False before it was called. Thread: any; settled once the cycle has begun.
TW_EXPORT bool is_standalone();
#endif

#endif  // TASKWARDEN_TASKWARDEN_H_
