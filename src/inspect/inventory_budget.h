// The memory of the inventories that are kept to explain growth. Without a limit, the default, they
// are kept whole. With one, what all of them take together with the one being taken stays below it:
// the largest are shortened to the names that occur most, and the rest is kept as one number. The
// memory that a name takes is estimated. Cycle's thread only.
#ifndef INSPECT_INVENTORY_BUDGET_H_
#define INSPECT_INVENTORY_BUDGET_H_

#include <cstddef>
#include <cstdint>
#include <string_view>

#include "inspect/string_counter.h"

// What was left out of an inventory.
struct tw_inventory_rest {
  bool is_short = false;
  int64_t occurrences = 0;  // of names left out
  int32_t most = 0;         // of any one of them
};

// `counter` is empty, and the inventory that is taken from now on.
void tw_begin_inventory(StringCounter* counter);

// Counts one occurrence of `name` in `counter`. If that is the inventory being taken, and all of
// them outgrow the limit by it, the largest are shortened.
void tw_count_name(StringCounter* counter, std::string_view name);

// `counter` is about to be destroyed, and counts no more.
void tw_let_go_inventory(const StringCounter* counter);

// What was left out of `counter`.
tw_inventory_rest tw_rest_of_inventory(const StringCounter* counter);

// StringCounter_diff() for inventories of which parts may have been left out: a name that was not
// kept counts as having occurred as often as any such name can have. `*others` gets the growth of
// all that no name is told for.
StringCounter tw_inventory_growth(StringCounter* previous, StringCounter* current, int64_t* others);

#endif  // INSPECT_INVENTORY_BUDGET_H_
