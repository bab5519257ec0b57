// What of its code and constants a program keeps in memory.
#ifndef HOST_WATCH_RESIDENT_CODE_H_
#define HOST_WATCH_RESIDENT_CODE_H_

namespace host {

// Leaves go of all pages of the program and its libraries that nothing can have written to. Those
// that are needed come back from the page cache, a file's neighbours with them; those that only the
// start needed stay away. Locked pages stay. Takes microseconds now, and about as much for each
// page that comes back. Any thread; nothing to free, nothing to fail. Breakpoints that a debugger
// has set before are lost.
void give_back_code();

}  // namespace host

#endif  // HOST_WATCH_RESIDENT_CODE_H_
