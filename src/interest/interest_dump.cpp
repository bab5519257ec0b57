#include "interest/interest_dump.h"

#include "inspect/smaps.h"
#include "report/reporter.h"

void interested_proc_dumpall(tw_process_list* list) {
  TW_REPORT("-> Dump the interested processes:\n");
  int index = 0;
  for (const tw_process_entry* entry = list->head; entry != nullptr; entry = entry->next) {
    if (!entry->interested) {
      continue;
    }
    TW_REPORT("INTERESTED %02d: pid %u \"%s\"\n", index, entry->pid, entry->desc.name);
    tw_process_smaps_dump(static_cast<int>(entry->pid));
    TW_REPORT("\n");
    ++index;
  }
}
