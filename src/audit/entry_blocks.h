// The memory that the event handler keeps of one process, in tagged blocks that hang on its slot.
#ifndef AUDIT_ENTRY_BLOCKS_H_
#define AUDIT_ENTRY_BLOCKS_H_

#include <memory>

#include "inspect/string_counter.h"
#include "proctable/process_records.h"

// Destroys the counter and releases the block it stands in.
struct CounterBlockDeleter {
  void operator()(StringCounter* counter) const;
};

// An owned StringCounter in a tagged block.
using CounterBlock = std::unique_ptr<StringCounter, CounterBlockDeleter>;

// An empty counter in a block of its own, for the inventory that is taken next; null when none can
// be had.
CounterBlock make_counter_block();

// Releases the three blocks of `entry` and clears its fields. Called for a slot whose process has
// gone, and for the copy of an identity that has ended.
void tw_release_entry_blocks(tw_process_entry* entry);

#endif  // AUDIT_ENTRY_BLOCKS_H_
