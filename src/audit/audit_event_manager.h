// Knows the hubs by their source and routes their events to the listeners. Cycle's thread only.
#ifndef AUDIT_AUDIT_EVENT_MANAGER_H_
#define AUDIT_AUDIT_EVENT_MANAGER_H_

#include <cstddef>
#include <cstdint>
#include <map>

#include "audit/audit_event_hub.h"

class AuditEventManager {
 public:
  // The one manager, created by the first call and never destroyed.
  static AuditEventManager* getInstance();

  // Appends `listener` (not owned) to the hub of `source`; one that is already there is called once
  // more for each event. A source without a hub is logged.
  void addListener(int32_t source, AuditEventListener* listener);

  // Runs the hub of `source` over `data` and delivers each event that it returns, all listeners
  // before the next event. Returns how many there were. A source without a hub is logged.
  size_t pollEvents(int32_t source, void* data);

  // Delivers the event `id` to the listeners of `source` without running its hub. A source without
  // a hub is passed over in silence. Returns whether there is a hub.
  bool deliverEvent(int32_t source, int32_t id, void* data);

  std::map<int32_t, AuditEventHub*> hubs;  // by source; not owned

 private:
  AuditEventHub* find(int32_t source) const;
};

#endif  // AUDIT_AUDIT_EVENT_MANAGER_H_
