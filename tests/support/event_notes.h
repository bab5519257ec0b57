// Writes down the events of one source while it lives, behind the handler: the id of each, the name
// of its process if it has one, and a plus if threads are kept.
#ifndef TESTS_SUPPORT_EVENT_NOTES_H_
#define TESTS_SUPPORT_EVENT_NOTES_H_

#include <string>
#include <utility>

#include "audit/audit_event_manager.h"
#include "proctable/process_records.h"

class EventNotes final : public AuditEventListener {
 public:
  // Of a process, of the process `pid` alone if that is not 0.
  explicit EventNotes(int32_t source, uint32_t pid = 0)
      : listeners_(AuditEventManager::getInstance()->hubs.at(source)->listeners), pid_(pid) {
    AuditEventManager::getInstance()->addListener(source, this);
  }
  ~EventNotes() { listeners_.pop_back(); }
  EventNotes& operator=(EventNotes&&) = delete;  // nor any copy

  // What came since the last call.
  std::string take() { return std::exchange(text_, {}); }

  bool onEventIncoming(AuditEvent* event) override {
    if (event->source != AUDIT_SOURCE_PROCENTRY) {
      text_ += std::to_string(event->id) + " ";
      return true;
    }
    const auto& entry = *static_cast<const tw_process_entry*>(event->data);
    if (pid_ == 0 || pid_ == entry.pid) {
      const char* kept = entry.threads_counter_block != nullptr ? "+ " : " ";
      const bool linked = entry.next != nullptr || entry.prev != nullptr;
      text_ += std::to_string(event->id) + entry.desc.name + kept;
      text_ += event->id == Event_ProcExited && linked ? "still linked " : "";
    }
    return true;
  }

 private:
  std::vector<AuditEventListener*>& listeners_;
  const uint32_t pid_;
  std::string text_;
};

#endif  // TESTS_SUPPORT_EVENT_NOTES_H_
