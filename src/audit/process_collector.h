// A small ranking: the processes of one class with the largest resident size, and the changes to it
// since it was last announced. Points at slots of the process table and owns none; a slot whose pid
// is 0 has been freed. Cycle's thread only.
#ifndef AUDIT_PROCESS_COLLECTOR_H_
#define AUDIT_PROCESS_COLLECTOR_H_

#include <cstdint>
#include <utility>
#include <vector>

#include "proctable/process_records.h"

class ProcessCollector {
 public:
  // (newcomer, the process it pushed out or null)
  using Change = std::pair<tw_process_entry*, tw_process_entry*>;

  // `name` is cut at 31 bytes.
  explicit ProcessCollector(const char* name);

  // Offers the tw_process_entry `entry` and drops members whose slots were freed meanwhile, with
  // the pending changes that brought them in. Admitted (1) while there is room, or in place of the
  // smallest member (the first of several) if it is larger than that; else, or when it is already a
  // member, refused (0).
  int32_t collect(void* entry);

  // Orders the members, largest first; equals come in no particular order.
  void sort();

  // Reports one line a member, in their present order; those that came in since the changes were
  // last emptied carry a star.
  void dump() const;

  // Whether `member` came in since the changes were last emptied.
  bool is_newcomer(const tw_process_entry* member) const;

  char name[32];
  std::vector<tw_process_entry*> members;
  int32_t metric;    // what is ranked by: Event_ResidentSize, the only one there is
  int32_t capacity;  // the most members kept
  std::vector<Change> changes;
};

#endif  // AUDIT_PROCESS_COLLECTOR_H_
