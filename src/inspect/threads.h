// Counts one process's threads by name, numbered families folded into one.
#ifndef INSPECT_THREADS_H_
#define INSPECT_THREADS_H_

#include "inspect/string_counter.h"
#include "taskwarden/export.h"

// Refills `counter` with the folded names of the threads under /proc/<pid>/task, and reports those
// that occur more than once. A thread whose name cannot be read counts as "<UNNAMED THREAD>". Where
// the directory cannot be opened the counter is untouched and the failure logged. With a null
// counter nothing is read. Cycle's thread only.
TW_EXPORT void tw_process_check_threads(int pid, StringCounter* counter);

#endif  // INSPECT_THREADS_H_
