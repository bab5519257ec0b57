#include "platform/socket_wait.h"

#include <algorithm>

namespace {

constexpr int64_t kNoCycle = -1;

thread_local int64_t left_in_pass_us = kNoCycle;

}  // namespace

void tw_begin_waits_of_pass(bool in_cycle) {
  left_in_pass_us = in_cycle ? int64_t{TW_PASS_WAIT_MS} * 1000 : kNoCycle;
}

int64_t tw_wait_left_us() {
  constexpr int64_t each = int64_t{TW_SOCKET_WAIT_MS} * 1000;
  return left_in_pass_us == kNoCycle ? each : std::min(each, left_in_pass_us);
}

void tw_spend_wait(int64_t us, bool timed_out) {
  if (left_in_pass_us != kNoCycle) {
    left_in_pass_us = timed_out ? 0 : std::max<int64_t>(0, left_in_pass_us - us);
  }
}
