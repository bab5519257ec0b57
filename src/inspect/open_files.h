// Counts one process's open descriptors, and on request what they point to.
#ifndef INSPECT_OPEN_FILES_H_
#define INSPECT_OPEN_FILES_H_

#include <string_view>

#include "inspect/fd_listing.h"
#include "inspect/string_counter.h"
#include "proctable/process_records.h"
#include "taskwarden/export.h"

// Walks /proc/<pid>/fd. With `desc`, sets its open_files to the number of descriptors, whether or
// not their links can be read. With `counter`, refills it with the kind of each target and reports
// the kinds held more than 10 times. Either may be null. Where the directory may not be opened
// (EACCES) nothing changes, silently; any other failure changes nothing and is logged.
// Cycle's thread only.
TW_EXPORT void tw_process_check_openfiles(int pid, tw_process_desc* desc, StringCounter* counter);

// One visit in this many lists the directory whatever its size says.
inline constexpr uint32_t TW_FD_LISTING_RHYTHM = 60;

// The same count for a process that is visited again and again: leaves desc->open_files as the last
// listing found it while the directory's size has not changed since, and lists otherwise. `last`
// (not null) belongs to the process, zeros at first and whenever the process has another name.
//
// The size is trusted only on a file system on which it was seen to equal the number of descriptors
// listed: since Linux 6.2 it is the number of descriptor numbers in use (proc_readfd_count() in
// fs/proc/fd.c); before, and in trees of ordinary files, it says nothing, and every visit lists. A
// listing that an error ended counts what it found, and the next visit lists again.
//
// What can go unseen: a number that a call has reserved and not yet filled (a thread is blocked in
// accept(2), say) is in the size but in no listing. When it becomes a descriptor, or one is closed
// while another is reserved, the size stays. The count is then wrong by at most the number of
// threads in such calls, until the size differs or TW_FD_LISTING_RHYTHM visits have passed: two
// minutes where a pass fits one slice.
void tw_process_recount_openfiles(int pid, tw_process_desc* desc, tw_fd_listing* last);

// The name under which a descriptor's link target is counted: sockets, pipes and shared memory by
// kind, anything else by its own text.
std::string_view tw_open_file_kind(std::string_view target);

#endif  // INSPECT_OPEN_FILES_H_
