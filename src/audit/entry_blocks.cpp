#include "audit/entry_blocks.h"

#include <new>

#include "blocks/tagged_block.h"

void CounterBlockDeleter::operator()(StringCounter* counter) const {
  counter->~StringCounter();
  tw_release(counter);
}

CounterBlock make_counter_block() {
  void* block = tw_allocate(sizeof(StringCounter));
  return CounterBlock(block != nullptr ? new (block) StringCounter : nullptr);
}

void tw_release_entry_blocks(tw_process_entry* entry) {
  if (entry->divisions_block != nullptr) {
    tw_release(entry->divisions_block);
    entry->divisions_block = nullptr;
  }
  for (void** field : {&entry->files_counter_block, &entry->threads_counter_block}) {
    CounterBlock(static_cast<StringCounter*>(*field)).reset();
    *field = nullptr;
  }
}
