#include "audit/event_draft.h"

#include <algorithm>
#include <cstring>

#include "audit/event_facts.h"
#include "inspect/start_time.h"
#include "platform/clock.h"
#include "proctable/table_notes.h"
#include "report/observers.h"

namespace {

// What many rows take is given back; what few take is kept for the next event.
constexpr size_t kRowsKept = 256;

int64_t now_ms() {
  const timeval now = tw_clock_now();
  return int64_t{now.tv_sec} * 1000 + now.tv_usec / 1000;
}

uint64_t start_time_of(uint32_t pid) {
  const tw_process_note* const note = tw_process_note_of(pid);
  return note != nullptr && note->start_time != TW_NO_START_TIME ? note->start_time : 0;
}

}  // namespace

taskwarden_event_row tw_row(int32_t kind, std::string_view name, int64_t value) {
  taskwarden_event_row row = {};
  row.kind = kind;
  row.name = {name.data(), name.size()};
  row.value = value;
  return row;
}

taskwarden_event_row tw_process_row(int32_t kind, const tw_process_entry& entry) {
  taskwarden_event_row row =
      tw_row(kind, entry.desc.name, static_cast<int64_t>(entry.desc.vm_rss_kb));
  row.pid = entry.pid;
  row.start_time = start_time_of(entry.pid);
  return row;
}

EventDraft& EventDraft::current() {
  // Never destroyed: the cycle may still run while the host exits.
  static EventDraft& draft = *new EventDraft;
  return draft;
}

EventDraft::Poll::Poll() : Poll(tw_event_observation()) {}

EventDraft::Poll::Poll(tw_observation mode) : muted_(mode == tw_observation::kWithoutText) {
  current().wanted_ = mode != tw_observation::kNone;
}

EventDraft::Poll::~Poll() {
  EventDraft& draft = current();
  draft.wanted_ = false;
  draft.new_name_ = nullptr;
  draft.raised_.clear();
  draft.clear_explanation();
}

EventDraft::Raised& EventDraft::raised(int32_t id) {
  const auto found = std::find_if(raised_.begin(), raised_.end(),
                                  [id](const Raised& event) { return event.id == id; });
  return found != raised_.end() ? *found : raised_.emplace_back(Raised{id, 0, 0, 0});
}

void EventDraft::set_levels(int32_t id, int64_t before, int64_t after) {
  if (wanted_) {
    Raised& event = raised(id);
    event.before = before;
    event.after = after;
  }
}

void EventDraft::set_record(int32_t id, bool sent) {
  if (wanted_) {
    raised(id).record = sent ? TASKWARDEN_RECORD_SENT : TASKWARDEN_RECORD_LOST;
  }
}

void EventDraft::begin(int32_t id, int32_t source, const void* data) {
  const EventFacts* const facts = wanted_ ? tw_find_event_facts(id) : nullptr;
  if (facts == nullptr || facts->source() != source) {
    return;
  }
  for (const LevelFigure& figure : {facts->level.first, facts->level.second}) {
    if (figure.read != nullptr) {
      add(tw_row(TASKWARDEN_ROW_MEASURED, figure.name, figure.read(data)));
    }
  }
  if (id == Event_ProcRenamed && new_name_ != nullptr) {
    add(tw_row(TASKWARDEN_ROW_NEW_NAME, new_name_));
  }
}

void EventDraft::add(const taskwarden_event_row& row) {
  if (wanted_) {
    rows_.push_back(row);
  }
}

void EventDraft::add_all(const StringCounter& inventory) {
  if (wanted_) {
    for (const auto& [name, count] : inventory) {
      add(tw_row(TASKWARDEN_ROW_INVENTORY, name, count));
    }
  }
}

void EventDraft::keep(StringCounter&& counter) {
  if (wanted_) {
    kept_.push_back(std::move(counter));
  }
}

void EventDraft::show(int32_t id, int32_t source, const void* data) {
  if (!wanted_) {
    return;
  }
  const EventFacts* const facts = tw_find_event_facts(id);
  const Raised& levels = raised(id);
  taskwarden_event event = {};
  event.size = sizeof(event);
  event.kind = facts != nullptr ? &facts->kind : nullptr;
  event.id = id;
  event.record = levels.record;
  event.time_ms = now_ms();
  event.is_compared = compared_ ? 1 : 0;
  event.before = levels.before;
  event.after = levels.after;
  event.rows = rows_.data();
  event.row_count = rows_.size();
  event.row_size = sizeof(taskwarden_event_row);
  if (source == AUDIT_SOURCE_PROCENTRY) {
    const auto& entry = *static_cast<const tw_process_entry*>(data);
    event.pid = entry.pid;
    event.process = {entry.desc.name, strlen(entry.desc.name)};
    event.start_time = start_time_of(entry.pid);
  }
  tw_show_event(event);
  clear_explanation();
}

void EventDraft::clear_explanation() {
  compared_ = false;
  kept_.clear();
  if (rows_.capacity() > kRowsKept) {
    // Not "= {}", which keeps the memory.
    rows_ = std::vector<taskwarden_event_row>();
  }
  rows_.clear();
}
