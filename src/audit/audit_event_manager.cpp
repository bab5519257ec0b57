#include "audit/audit_event_manager.h"

#include "audit/event_draft.h"
#include "report/log.h"

namespace {

// To every listener, and then to the host's observer.
void deliver(AuditEventHub* hub, int32_t id, void* data) {
  EventDraft& draft = EventDraft::current();
  draft.begin(id, hub->source, data);
  hub->deliver(id, data);
  draft.show(id, hub->source, data);
}

}  // namespace

AuditEventManager* AuditEventManager::getInstance() {
  static AuditEventManager* __instance = nullptr;
  if (__instance == nullptr) {
    __instance = new AuditEventManager;
  }
  return __instance;
}

AuditEventHub* AuditEventManager::find(int32_t source) const {
  const auto found = hubs.find(source);
  return found != hubs.end() ? found->second : nullptr;
}

void AuditEventManager::addListener(int32_t source, AuditEventListener* listener) {
  AuditEventHub* hub = find(source);
  if (hub == nullptr) {
    TW_LOG(TW_TAG_AUDIT, ">> No such source (%u) to listen!!\n", static_cast<unsigned>(source));
    return;
  }
  hub->listeners.push_back(listener);
}

size_t AuditEventManager::pollEvents(int32_t source, void* data) {
  AuditEventHub* hub = find(source);
  if (hub == nullptr) {
    TW_LOG(TW_TAG_EVENT, ">> No such source (%u) to poll!!\n", static_cast<unsigned>(source));
    return 0;
  }
  const EventDraft::Poll poll;
  const std::vector<int32_t> raised = hub->retrieve(data);
  for (const int32_t id : raised) {
    deliver(hub, id, data);
  }
  return raised.size();
}

bool AuditEventManager::deliverEvent(int32_t source, int32_t id, void* data) {
  AuditEventHub* hub = find(source);
  if (hub == nullptr) {
    return false;
  }
  const EventDraft::Poll poll;
  deliver(hub, id, data);
  return true;
}
