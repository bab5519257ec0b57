#include "judge/floors.h"

#include <algorithm>
#include <array>

namespace judge {
namespace {

Code lower(Code a, Code b) {
  return a == 0 ? b : b == 0 ? a : std::min(a, b);
}

// Enters the window that the minute `from` is in if it is over at minute `to`; the windows between
// them are unknown.
template <Scale kScale>
void close(Code* ring, uint32_t from, uint32_t to, Code* low) {
  constexpr uint32_t size = kWindows[kScale];
  constexpr uint32_t width = kMinutesPerWindow[kScale];
  const uint32_t closed = from / width;
  const uint32_t open = to / width;
  if (closed == open) {
    return;
  }
  ring[closed % size] = *low;
  *low = 0;
  for (uint32_t skipped = std::max(closed + 1, open - std::min(open, size)); skipped < open;
       ++skipped) {
    ring[skipped % size] = 0;
  }
}

// 2 to the power of every part of a doubling.
const std::array<double, kCodesPerDoubling> kPowers = [] {
  std::array<double, kCodesPerDoubling> powers;
  for (uint32_t i = 0; i < kCodesPerDoubling; ++i) {
    powers[i] = std::exp2(static_cast<double>(i) / kCodesPerDoubling);
  }
  return powers;
}();

}  // namespace

double decode(Code code) {
  const uint32_t steps = code - 1U;
  return kPowers[steps % kCodesPerDoubling] *
             static_cast<double>(uint64_t{1} << (steps / kCodesPerDoubling)) -
         1;
}

void Floors::advance(uint32_t from, uint32_t to) {
  Code minute = low == kNone ? Code{0} : encode(low);
  low = kNone;
  low_of_eight = lower(low_of_eight, minute);
  low_of_hour = lower(low_of_hour, minute);
  close<kMinutes>(minutes, from, to, &minute);
  close<kEights>(eights, from, to, &low_of_eight);
  close<kHours>(hours, from, to, &low_of_hour);
  const uint32_t hour = from / kMinutesPerWindow[kHours];
  for (uint32_t i = hour; i < to / kMinutesPerWindow[kHours] && i < hour + kPeaks; ++i) {
    peaks[i % kPeaks] = high == 0 ? Code{0} : encode(high);
    high = 0;
  }
}

}  // namespace judge
