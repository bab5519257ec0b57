#include "interest/interest_list.h"

#include <cutils/properties.h>
#include <string.h>

#include <string>
#include <vector>

#include "interest/interest_mark.h"
#include "platform/clock.h"
#include "platform/locks.h"
#include "report/reporter.h"

namespace {

// Under Lock::kInterestList. Never destroyed: the cycle may still look at it while the host exits.
std::vector<std::string>& builtin_interest_list() {
  static auto& list = *new std::vector<std::string>;
  return list;
}

}  // namespace

void interest_builtin_load() {
  char value[PROPERTY_VALUE_MAX];
  property_get("tw.stats.interest", value, "0");
  if (value[0] == '0') {
    TW_REPORT("No builtin interested list\n");
    return;
  }
  interest_builtin_add(value);
}

void interest_builtin_add(const char* text) {
  {
    const LockGuard lock(Lock::kInterestList);
    builtin_interest_list().emplace_back(text);
  }
  TW_REPORT("Add the builtin interest: %s\n", text);
}

bool is_interest(const char* name) {
  const LockGuard lock(Lock::kInterestList);
  for (const std::string& text : builtin_interest_list()) {
    if (strstr(name, text.c_str()) != nullptr) {
      return true;
    }
  }
  return false;
}

void interested_proc_set(tw_process_entry* entry, bool mark) {
  if (entry == nullptr) {
    return;
  }
  if (mark) {
    entry->interested = true;
  } else if (!is_interest(entry->desc.name)) {
    entry->interested = false;
  }
}

int32_t tw_onschedule_stats(tw_process_list* /*list*/, int32_t tick) {
  if (tick % 30 != 0) {
    return 0;
  }
  const timeval start = tw_clock_now();
  return tw_elapsed_ms(start, tw_clock_now());
}
