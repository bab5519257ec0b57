#include "audit/audit_event_manager.h"

#include "report/log.h"

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

void AuditEventManager::pollEvents(int32_t source, void* data) {
  AuditEventHub* hub = find(source);
  if (hub == nullptr) {
    TW_LOG(TW_TAG_EVENT, ">> No such source (%u) to poll!!\n", static_cast<unsigned>(source));
    return;
  }
  for (const int32_t id : hub->retrieve(data)) {
    hub->deliver(id, data);
  }
}

bool AuditEventManager::deliverEvent(int32_t source, int32_t id, void* data) {
  AuditEventHub* hub = find(source);
  if (hub != nullptr) {
    hub->deliver(id, data);
  }
  return hub != nullptr;
}
