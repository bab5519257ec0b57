// Decides when one process has grown enough to be worth a report: nine of its current numbers
// against the levels in its baseline.
#ifndef AUDIT_PROC_ENTRY_EVENT_HUB_H_
#define AUDIT_PROC_ENTRY_EVENT_HUB_H_

#include "audit/audit_event_hub.h"

class ProcEntryEventHub final : public AuditEventHub {
 public:
  // `data` is a tw_process_entry with a baseline. All nine checks run, each that fires writes its
  // block, and raises its level in the baseline to where the next growth is measured from, before
  // any listener hears of the first. Four of the address-space events send their own record; the
  // handler sends the others'. The first address-space size seen for a division becomes its level
  // in silence.
  std::vector<int32_t> retrieve(void* data) override;
};

#endif  // AUDIT_PROC_ENTRY_EVENT_HUB_H_
