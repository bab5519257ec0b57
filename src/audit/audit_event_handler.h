// The one listener: explains each event in the diagnostic log, sends the record of thread,
// open-file and resident-size growth, and keeps, in tagged blocks on the process's slot, what it
// saw at the last event of a kind, so that the next can name what grew since. The first event of a
// kind only stores that.
#ifndef AUDIT_AUDIT_EVENT_HANDLER_H_
#define AUDIT_AUDIT_EVENT_HANDLER_H_

#include "audit/audit_event_listener.h"

class AuditEventHandler final : public AuditEventListener {
 public:
  // Events that need no explanation are ignored. Where no block can be had for what was seen, the
  // headline stands alone and the memory stays as it was. Returns true.
  bool onEventIncoming(AuditEvent* event) override;
};

#endif  // AUDIT_AUDIT_EVENT_HANDLER_H_
