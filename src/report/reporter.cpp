#include "report/reporter.h"

#include "platform/locks.h"

thread_local bool ReportVolume::muted_ = false;

Chronicler& tw_reporter() {
  // The pointer is a plain one that everybody who reports shares.
  Chronicler* reporter = __atomic_load_n(&Chronicler::instance, __ATOMIC_ACQUIRE);
  if (reporter == nullptr) {
    const LockGuard lock(Lock::kReporter);
    reporter = __atomic_load_n(&Chronicler::instance, __ATOMIC_ACQUIRE);
    if (reporter == nullptr) {
      reporter = new Chronicler();
      __atomic_store_n(&Chronicler::instance, reporter, __ATOMIC_RELEASE);
    }
  }
  return *reporter;
}
