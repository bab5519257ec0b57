// How a run of floors goes: how much it gained, how evenly, how straight. Pure functions.
#ifndef JUDGE_TREND_H_
#define JUDGE_TREND_H_

#include <cstdint>

#include "judge/floors.h"

namespace judge {

// The newest closed windows of a ring in the order of time, and how far they go back.
struct Run {
  double level[kWindows[kHours]];  // below 0 where unknown
  uint32_t count = 0;
  uint32_t minutes = 0;  // that one window lasts
  double age = 0;        // windows from the first sample to the end
};

// The last `count` closed windows before the open one, `end`, or as many as there are.
Run unroll(const Floors& floors, Scale scale, uint32_t end, uint32_t count);
// The same with each `width` windows made one, the lowest counts; the oldest that fill none are
// left out.
Run merge(const Run& run, uint32_t width);

struct Trend {
  double from = 0;            // level at the beginning: the middle one of a few windows
  double gain = 0;            // up to the end, likewise
  double quarter[4] = {};     // of the gain, by time
  double span = 0;            // windows between the middles of the beginning and the end
  double before = 0;          // gain in `before_span` windows before the beginning
  double before_span = 0;     // 0 where nothing is known; about as many as the run's at most
  double highest_before = 0;  // the highest floor before the beginning; 0 where nothing is known
  // What follows is dearer, and filled in by measure_shape().
  double order = 0;    // rank correlation with time among the pairs that differ, -1 to 1
  double decided = 0;  // the part of the pairs that differ
  double rises = 0;    // in how many equal rises the same unevenness would come
  double bend = 0;     // by how much the middle of a parabola lies below its ends, as a part of the
                       // gain: below 0 for growth that dies away
  double scatter = 0;  // deviation of the floors from that parabola, as a part of the gain
  double bend_error = 0;  // how far that may be off by the scatter of the floors (one deviation)
};

// Measure the last `count` windows of the run. False where too little is known.
bool measure_gains(const Run& run, uint32_t count, Trend* trend);
bool measure_shape(const Run& run, uint32_t count, Trend* trend);

// The last hours beside the same hours of the day before. They are more than a day, so that one
// step does not lift all of them.
constexpr uint32_t kPairs = 30;
struct Days {
  uint32_t pairs = 0;  // hours that are known in both
  double typical = 0;  // the middle one of the gains
  double least = 0;    // a low one: nine of ten are above
  double first = 0;    // mean gain of the older half of the hours ...
  double second = 0;   // ... and of the younger
  double jump = 0;     // the largest change of the gain from an hour to the next
  double before = 0;   // the middle gain of the day before over its eve; 0 where unknown
  double from = 0;     // the lowest floor of the day before
  double low = 0;      // the lowest floor of the last day above that of its eve
  double high = 0;     // likewise the highest
  double falls = 0;    // the sum of all falls from an hour to the next
};
bool compare_days(const Run& hours, Days* days);

}  // namespace judge

#endif  // JUDGE_TREND_H_
