// Who acts on events.
#ifndef AUDIT_AUDIT_EVENT_LISTENER_H_
#define AUDIT_AUDIT_EVENT_LISTENER_H_

#include "audit/event_ids.h"

class AuditEventListener {
 public:
  // Called once per event, on the cycle's thread; `event` is valid only for the call. The result is
  // ignored.
  virtual bool onEventIncoming(AuditEvent* event) = 0;

 protected:
  ~AuditEventListener() = default;
};

#endif  // AUDIT_AUDIT_EVENT_LISTENER_H_
