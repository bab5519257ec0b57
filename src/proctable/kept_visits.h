// Visits that read no file: what has not run since its numbers were last read keeps them. Off until
// taskwarden_visit_only_what_ran(); and on only for the library's own table, and where the process
// file system shows the pids of our own pid namespace.
//
// A process's CPU clock tells whether any of its threads ran. It is compared for equality, so a pid
// that is used again is noticed. These are read all the same: what is new, has another name or no
// baseline yet (kernel tasks never get one, and go by their clock alone); what was running or in
// uninterruptible sleep at the last reading, or could not be read whole; what has a parent that
// left the table, or shares memory or descriptors with its parent or with a child; what is
// interesting, or had an event in its last TW_EVENT_VISITS visits; and each at every
// TW_READING_RHYTHM-th of its visits. Cycle's thread only.
#ifndef PROCTABLE_KEPT_VISITS_H_
#define PROCTABLE_KEPT_VISITS_H_

#include <cstdint>

#include "proctable/process_note.h"
#include "proctable/process_records.h"

// One visit in this many reads whatever the clock says: at other visits for each pid of a row.
inline constexpr uint8_t TW_READING_RHYTHM = 30;
// So many visits after an event read.
inline constexpr uint8_t TW_EVENT_VISITS = 5;

// Decides whether visits are kept from now on, and says once in the log where that was asked for
// and cannot be. Forgets what it knew of the pids made so far.
void tw_settle_kept_visits();

// Whether visits of `list` are kept.
bool tw_keeps_visits(const tw_process_list* list);

enum class Finding { kGone, kRead, kKeep };

// Begins the visit of `entry`, beside which `note` stands (null: nothing does), and tells what is
// to be done. `*cpu_ns` is for tw_note_reading().
Finding tw_begin_visit(const tw_process_entry& entry, tw_process_note* note, uint64_t* cpu_ns);

// Ends a visit that has read. `is_whole`: all that it asked for was there, or is not for us to see.
void tw_note_reading(const tw_process_list* list, const tw_process_entry& entry,
                     tw_process_note* note, uint64_t cpu_ns, bool is_whole);

// The process had an event in this visit.
void tw_note_event(tw_process_note* note);
// It has another name: with whom the new one shares is not known.
void tw_note_identity(tw_process_note* note);
// It has left the table.
void tw_note_gone(uint32_t pid);
// The table was visited to its end.
void tw_note_pass_end();

#endif  // PROCTABLE_KEPT_VISITS_H_
