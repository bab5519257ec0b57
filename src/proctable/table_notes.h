// What stands beside a process table. The library's own table has a note beside each slot; a table
// laid out by somebody else has TW_PROCESS_SLOTS slots and nothing beside them. Cycle's thread
// only.
#ifndef PROCTABLE_TABLE_NOTES_H_
#define PROCTABLE_TABLE_NOTES_H_

#include <cstdint>

#include "proctable/process_note.h"
#include "proctable/process_records.h"

// One past the last pid that `list` has a slot for.
uint32_t tw_process_slots(const tw_process_list* list);

// The note beside the slot of `pid`, which `list` has; null where nothing stands beside it.
tw_process_note* tw_process_note_of(const tw_process_list* list, uint32_t pid);

// The same for whoever has only a pid: of the library's own table, if that has such a process.
const tw_process_note* tw_process_note_of(uint32_t pid);

// The slot of `pid` and its note are zeros again: memory that only they took goes back to the
// kernel.
void tw_give_back_slot(const tw_process_list* list, uint32_t pid);

// How many processes visited in the pass under way had a number that could not be read; not counted
// in a table that is not ours, where it stays 0.
uint32_t tw_unreadable_count(const tw_process_list* list);
void tw_reset_unreadable_count(const tw_process_list* list);
void tw_count_unreadable(const tw_process_list* list);

#endif  // PROCTABLE_TABLE_NOTES_H_
