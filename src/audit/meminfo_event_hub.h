// Raises an event while the system is short of memory, or while the kernel's unreclaimable slab is
// very large: at every poll for as long as it lasts.
#ifndef AUDIT_MEMINFO_EVENT_HUB_H_
#define AUDIT_MEMINFO_EVENT_HUB_H_

#include "audit/audit_event_hub.h"

class MemInfoEventHub final : public AuditEventHub {
 public:
  // `data` is a tw_meminfo_t. Figures that were not read are 0, and so count as no memory free.
  std::vector<int32_t> retrieve(void* data) override;
};

#endif  // AUDIT_MEMINFO_EVENT_HUB_H_
