// The floors of one resource of one process: its minima over windows of time, in three rings of
// windows of 1 minute, 8 minutes and 1 hour. A minimum hides bursts, collections of garbage and
// spikes; a window without a sample stays unknown, so a gap or a suspend is missing time.
//
// Windows are counted from the first sample of the process. The newest of a ring is still open;
// what is judged are the closed ones. How high it went is kept for the last three hours only: a
// limit is reached by peaks.
#ifndef JUDGE_FLOORS_H_
#define JUDGE_FLOORS_H_

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

namespace judge {

// A level as 16 bits: its logarithm, in steps of 0.034 %; below 2900 any two counts differ. Codes
// are in the order of their levels, and 0 is unknown.
using Code = uint16_t;
constexpr uint32_t kCodesPerDoubling = 2048;

inline Code encode(uint32_t level) {
  return static_cast<Code>(
      std::min(65535.0F, 1.5F + kCodesPerDoubling * std::log2(static_cast<float>(level) + 1)));
}

double decode(Code code);

// The rings, from the finest on.
enum Scale { kMinutes, kEights, kHours };
constexpr size_t kScales = 3;
constexpr uint32_t kMinutesPerWindow[kScales] = {1, 8, 60};
constexpr uint32_t kWindows[kScales] = {14, 15, 72};
constexpr uint32_t kPeaks = 3;

struct Floors {
  static constexpr uint32_t kNone = UINT32_MAX;

  Code minutes[14];
  Code eights[15];
  Code hours[72];
  Code peaks[kPeaks];    // the highest levels of the last hours, 0 where unknown
  uint32_t high = 0;     // ... and of the hour under way
  uint32_t low = kNone;  // of the minute under way
  Code low_of_eight = 0;
  Code low_of_hour = 0;

  // Takes a level into the open windows.
  void take(uint32_t level) {
    low = level < low ? level : low;
    high = level > high ? level : high;
  }

  // Closes the minute `from`, and what ends with it, because time has come to the minute `to`.
  void advance(uint32_t from, uint32_t to);

  const Code* ring(Scale scale) const {
    return scale == kMinutes ? minutes : scale == kEights ? eights : hours;
  }
  // Of the window `index`, one of the last kWindows[scale] closed ones.
  Code at(Scale scale, uint32_t index) const { return ring(scale)[index % kWindows[scale]]; }
};

}  // namespace judge

#endif  // JUDGE_FLOORS_H_
