#include "audit/audit_initialize.h"

#include "audit/audit_event_handler.h"
#include "audit/audit_event_manager.h"
#include "audit/meminfo_event_hub.h"
#include "audit/proc_entry_event_hub.h"
#include "audit/proc_list_event_hub.h"

void tw_audit_initialize() {
  static auto& __memInfoHub = *new MemInfoEventHub;
  static auto& __procEntryHub = *new ProcEntryEventHub;
  static auto& __procListHub = *new ProcListEventHub;
  static AuditEventHandler __eventHandler;

  AuditEventManager* manager = AuditEventManager::getInstance();
  const auto enter = [manager](int32_t source, AuditEventHub* hub) {
    hub->source = source;
    manager->hubs[source] = hub;
    manager->addListener(source, &__eventHandler);
  };
  enter(AUDIT_SOURCE_MEMINFO, &__memInfoHub);
  enter(AUDIT_SOURCE_PROCENTRY, &__procEntryHub);
  enter(AUDIT_SOURCE_PROCLIST, &__procListHub);
}
