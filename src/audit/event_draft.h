// The data of the events of one poll, gathered while hub and handler tell them in the log, for the
// host's observer. Without an observer nothing is gathered. Cycle's thread only.
#ifndef AUDIT_EVENT_DRAFT_H_
#define AUDIT_EVENT_DRAFT_H_

#include <cstdint>
#include <string_view>
#include <vector>

#include "inspect/string_counter.h"
#include "proctable/process_records.h"
#include "report/observers.h"
#include "report/reporter.h"
#include "taskwarden/observers.h"

class EventDraft {
 public:
  // The draft of the poll under way.
  static EventDraft& current();

  // While a poll lasts. Mutes the text of its events where the host wants data alone.
  class Poll {
   public:
    Poll();
    ~Poll();
    Poll(const Poll&) = delete;
    Poll& operator=(const Poll&) = delete;

   private:
    explicit Poll(tw_observation mode);

    const MutedReports muted_;
  };

  bool is_wanted() const { return wanted_; }

  // A hub has raised the event `id`.
  void set_levels(int32_t id, int64_t before, int64_t after);
  // The record of the event `id` was sent, or lost.
  void set_record(int32_t id, bool sent);

  // The name that a change of name leads to, `name` valid until the poll for it ends.
  void set_new_name(const char* name) { new_name_ = name; }

  // The event `id` about `data` is delivered next, and then explained.
  void begin(int32_t id, int32_t source, const void* data);

  // The explanation of the event that is being delivered. Names are not copied: they must stay
  // valid until the poll ends.
  void add(const taskwarden_event_row& row);
  void add_all(const StringCounter& inventory);
  // There was an inventory before.
  void set_compared() { compared_ = true; }
  // Keeps `counter`, to whose names rows point, until the poll ends.
  void keep(StringCounter&& counter);

  // Shows the event to the observer, now that all listeners had it, and forgets its explanation.
  void show(int32_t id, int32_t source, const void* data);

 private:
  struct Raised {
    int32_t id;
    int32_t record;
    int64_t before;
    int64_t after;
  };
  Raised& raised(int32_t id);
  void clear_explanation();

  bool wanted_ = false;
  bool compared_ = false;
  const char* new_name_ = nullptr;
  std::vector<Raised> raised_;
  std::vector<taskwarden_event_row> rows_;
  std::vector<StringCounter> kept_;
};

// A row of which the rest is 0.
taskwarden_event_row tw_row(int32_t kind, std::string_view name, int64_t value = 0);

// A row about the process in the slot `entry`.
taskwarden_event_row tw_process_row(int32_t kind, const tw_process_entry& entry);

#endif  // AUDIT_EVENT_DRAFT_H_
