#include "audit/entry_blocks.h"

#include <new>

#include "blocks/tagged_block.h"
#include "inspect/inventory_budget.h"

void CounterBlockDeleter::operator()(StringCounter* counter) const {
  tw_let_go_inventory(counter);
  counter->~StringCounter();
  tw_release(counter);
}

CounterBlock make_counter_block() {
  void* block = tw_allocate(sizeof(StringCounter));
  if (block == nullptr) {
    return nullptr;
  }
  CounterBlock counter(new (block) StringCounter);
  tw_begin_inventory(counter.get());
  return counter;
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
