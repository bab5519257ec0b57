// Whether processes were made since the table last listed them, asked without listing them. Cycle's
// thread only; for visits as in proctable/kept_visits.h, and the library's own table.
#ifndef PROCTABLE_NEW_PIDS_H_
#define PROCTABLE_NEW_PIDS_H_

#include <cstdint>

// One scan in this many lists whatever the kernel's figures say.
inline constexpr uint32_t TW_LISTING_RHYTHM = 10;

// False if the last pid that the kernel gave to a process or thread of this pid namespace (proc(5),
// /proc/loadavg) and the number of its processes (the links of the root directory) are what they
// were just before the last listing, and that was less than TW_LISTING_RHYTHM scans ago.
//
// What can go unseen until then: a process that was given a pid of its maker's choice (clone3(2),
// set_tid), or came when the count of pids had gone round once and a pid later, while as many ended
// as came; one on which fork(2) was still at work, and another ended; and one that was hidden
// before.
bool tw_may_have_new_pids();

// A listing, begun after that question, went well.
void tw_note_listing();

// The next scan lists.
void tw_forget_new_pids();

#endif  // PROCTABLE_NEW_PIDS_H_
