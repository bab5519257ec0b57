// Raises an event when a pass has met too many processes, of one kind or in all: at every poll for
// as long as it lasts.
#ifndef AUDIT_PROC_LIST_EVENT_HUB_H_
#define AUDIT_PROC_LIST_EVENT_HUB_H_

#include "audit/audit_event_hub.h"

class ProcListEventHub final : public AuditEventHub {
 public:
  // `data` is a tw_process_list. Order: runtime, native, then kernel tasks or else the total, which
  // is looked at only when no single kind is over its limit.
  std::vector<int32_t> retrieve(void* data) override;
};

#endif  // AUDIT_PROC_LIST_EVENT_HUB_H_
