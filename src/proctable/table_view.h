// The table as data, for the host's observer.
#ifndef PROCTABLE_TABLE_VIEW_H_
#define PROCTABLE_TABLE_VIEW_H_

#include <cstdint>

#include "proctable/process_records.h"

// How far the pass under way has come.
struct tw_pass_figures {
  uint32_t pass;   // its number, from 1
  uint32_t slice;  // the slice's number within it, from 1
  uint32_t duration_ms;
  uint32_t overloads;
  bool is_complete;
};

// Shows the observer `list` as it stands after a slice. Cycle's thread only.
void tw_show_table_after_slice(const tw_process_list* list, const tw_pass_figures& figures);

#endif  // PROCTABLE_TABLE_VIEW_H_
