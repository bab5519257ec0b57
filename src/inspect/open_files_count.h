// Counting a process's open descriptors at every visit, with as few listings as can be; and the
// names that they are counted under.
#ifndef INSPECT_OPEN_FILES_COUNT_H_
#define INSPECT_OPEN_FILES_COUNT_H_

#include <cstdint>
#include <string_view>

#include "proctable/process_note.h"
#include "proctable/process_records.h"

// One visit in this many lists the directory whatever its size says.
inline constexpr uint32_t TW_FD_LISTING_RHYTHM = 60;

// Writes the number of open descriptors into desc->open_files, as tw_process_check_openfiles()
// does: from `last` while the directory's size has not changed since it was listed, and from a
// listing otherwise, which `last` then remembers. `last` belongs to the process; it is zeros at
// first and whenever the process has another name. With a null `last` every call lists. Returns
// whether the number is known: the directory could be opened, and listed to its end; if not, errno
// tells why.
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
bool tw_process_recount_openfiles(int pid, tw_process_desc* desc, tw_fd_listing* last);

// The name under which a descriptor's link target is counted: sockets, pipes and shared memory by
// kind, anything else by its own text.
std::string_view tw_open_file_kind(std::string_view target);

// Names held more often than this are reported.
inline constexpr int32_t TW_OPEN_FILES_LISTED_ABOVE = 10;

#endif  // INSPECT_OPEN_FILES_COUNT_H_
