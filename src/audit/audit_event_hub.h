// A source of events: compares one kind of measured object with limits or with the levels kept in
// the object itself. A hub remembers nothing between polls.
#ifndef AUDIT_AUDIT_EVENT_HUB_H_
#define AUDIT_AUDIT_EVENT_HUB_H_

#include <cstdint>
#include <vector>

#include "audit/audit_event_listener.h"

class AuditEventHub {
 public:
  int32_t source = 0;                          // one of the AUDIT_SOURCE ids
  std::vector<AuditEventListener*> listeners;  // in order of registration; not owned

  // Compares `data`, of the type that the source stands for, logs what it finds, and returns the
  // ids of the events that fired, in the order raised, each at most once.
  virtual std::vector<int32_t> retrieve(void* data) = 0;

  // Hands one event to every listener, in order of registration.
  void deliver(int32_t id, void* data) {
    AuditEvent event = {.id = id, .source = source, .data = data};
    for (AuditEventListener* listener : listeners) {
      listener->onEventIncoming(&event);
    }
  }

 protected:
  ~AuditEventHub() = default;
};

#endif  // AUDIT_AUDIT_EVENT_HUB_H_
