#include "report/observers.h"

#include <errno.h>

#include <atomic>

#include "platform/guarded_call.h"
#include "platform/locks.h"
#include "report/log.h"
#include "report/reporter.h"

namespace {

// One kind of observer: the host's function, and what it was set with.
template <typename Subject>
class Observer {
 public:
  using Function = void (*)(void* context, const Subject* subject);

  static constexpr int kNone = -1;

  explicit constexpr Observer(Lock lock) : lock_(lock) {}

  // What it was set with, or kNone where there is no observer.
  int mode() const { return mode_.load(std::memory_order_relaxed); }

  int set(Function function, void* context, int mode, int largest_mode) {
    const bool observing = tw_holds(Lock::kEventObserver) || tw_holds(Lock::kTableObserver);
    if (observing || mode < 0 || mode > largest_mode) {
      errno = observing ? EDEADLK : EINVAL;
      return -1;
    }
    const LockGuard lock(lock_);
    function_ = function;
    context_ = context;
    mode_ = function != nullptr ? mode : kNone;
    return 0;
  }

  // Under the lock, so that who sets another waits for the end of the call.
  void call(const Subject& subject) {
    const LockGuard lock(lock_);
    const AudibleReports audible;
    if (function_ != nullptr && !tw_guarded_call([&] { function_(context_, &subject); })) {
      function_ = nullptr;
      mode_ = kNone;
      TW_LOG(TW_TAG_EVENT, ">> an observer threw an exception and is taken out!!\n");
    }
  }

 private:
  const Lock lock_;
  Function function_ = nullptr;
  void* context_ = nullptr;
  std::atomic<int> mode_{kNone};
};

Observer<taskwarden_event> events(Lock::kEventObserver);
Observer<taskwarden_table> tables(Lock::kTableObserver);

}  // namespace

tw_observation tw_event_observation() {
  switch (events.mode()) {
    case TASKWARDEN_WITH_TEXT:
      return tw_observation::kWithText;
    case TASKWARDEN_WITHOUT_TEXT:
      return tw_observation::kWithoutText;
    default:
      return tw_observation::kNone;
  }
}

bool tw_is_observed() {
  return events.mode() != events.kNone || tables.mode() != tables.kNone;
}

bool tw_is_table_observed(bool pass_is_complete) {
  return tables.mode() == TASKWARDEN_EVERY_SLICE ||
         (pass_is_complete && tables.mode() == TASKWARDEN_EVERY_PASS);
}

void tw_show_event(const taskwarden_event& event) {
  events.call(event);
}

void tw_show_table(const taskwarden_table& table) {
  tables.call(table);
}

int taskwarden_observe_events(taskwarden_event_fn observer, void* context, int flags) {
  return events.set(observer, context, flags, TASKWARDEN_WITHOUT_TEXT);
}

int taskwarden_observe_table(taskwarden_table_fn observer, void* context, int when) {
  return tables.set(observer, context, when, TASKWARDEN_EVERY_SLICE);
}
