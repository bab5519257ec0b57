#include "judge/rules.h"

#include <algorithm>
#include <cmath>
#include <span>

#include "judge/trend.h"

namespace judge {
namespace {

// What a trend has to show.
struct Demand {
  uint32_t windows;      // over so many
  double gain;           // as a part of the level at the beginning
  double least_quarter;  // the smallest gain of a quarter, as a part of the mean of the four
  double last_quarter;   // the last one's, as a part of the first one's
  double second_half;    // the second half's, as a part of the first one's
  double order;
  double rises;
  double new_heights;         // the part of the gain above all that was before
  double scatter = HUGE_VAL;  // around a curve, as a part of the gain: of load there is more
};

// What a gain has to be at the least, whatever its shape.
struct Least {
  double gain;  // kB or counts
  double part;  // of what a demand asks for: counts are exact, and less of them is enough
};

Least least_of(Resource resource, bool slow) {
  if (resource == Resource::kMemory) {
    return {slow ? 256.0 : 1024.0, 1};
  }
  return {slow ? 5.0 : 8.0, 0.4};
}

// Errors to allow for, and the part of a logarithm's bend that is still straight.
constexpr double kSure = 1.75;
constexpr double kStraight = 0.4;

bool meets(const Run& run, const Demand& demand, const Least& least, Trend* trend) {
  if (!measure_gains(run, demand.windows, trend) ||
      trend->gain < least.part * demand.gain * trend->from || trend->gain < least.gain) {
    return false;
  }
  const double* const q = trend->quarter;
  return std::min({q[0], q[1], q[2], q[3]}) >= demand.least_quarter * trend->gain / 4 &&
         q[3] >= demand.last_quarter * q[0] && q[2] + q[3] >= demand.second_half * (q[0] + q[1]) &&
         trend->from + trend->gain - trend->highest_before >= demand.new_heights * trend->gain &&
         measure_shape(run, demand.windows, trend) && trend->order >= demand.order &&
         trend->decided >= 0.5 && trend->rises >= demand.rises && trend->scatter <= demand.scatter;
}

// Is it sure enough that the growth does not die away? Unless it has just begun, it has to be
// straighter than a logarithm of the age is over the same time.
bool lasts(const Run& run, const Demand& demand, const Trend& trend) {
  const double bend = trend.bend - kSure * trend.bend_error;
  if (bend < -0.15) {
    return false;
  }
  if (trend.before_span >= demand.windows / 4.0) {
    const double before = trend.before * trend.span / (trend.gain * trend.before_span);
    if (before < 0.6 || before > 1.2) {
      return before < 0.6;
    }
  }
  const double end = run.age;
  const double begin = end - demand.windows + 0.5;
  const double logarithm = 0.5 - std::log((begin + end) / 2 / begin) / std::log(end / begin);
  return bend > kStraight * logarithm;
}

Growth growth_of(const Run& run, const Demand& demand, const Trend& trend) {
  Growth growth;
  growth.minutes = demand.windows * run.minutes;
  const double hours = trend.span * run.minutes / 60;
  growth.rate_per_hour = std::max(trend.gain, 2 * (trend.quarter[2] + trend.quarter[3])) / hours;
  // It began after the last floor that was as low as the first ones.
  const uint32_t begin = run.count - demand.windows;
  growth.from = trend.from;
  for (uint32_t i = begin; i < begin + demand.windows / 5; ++i) {
    growth.from = run.level[i] >= 0 ? std::min(growth.from, run.level[i]) : growth.from;
  }
  uint32_t last = begin;
  for (uint32_t i = begin; i < run.count; ++i) {
    last = run.level[i] >= 0 && run.level[i] <= growth.from + 0.02 * trend.gain ? i : last;
  }
  growth.ago = (run.count - last) * run.minutes;
  return growth;
}

bool leaks_by_same_hour(const Run& hours, Resource resource, Growth* growth) {
  Days days;
  if (!compare_days(hours, &days) || days.pairs < kPairs - 3) {
    return false;
  }
  const Least least = least_of(resource, true);
  const double wanted = std::max(0.05 * least.part * days.from, least.gain);
  // Without falls the growth can be judged as it is, and what is left here are steps.
  if (days.typical < wanted || days.least < 0.5 * wanted || days.second < 0.75 * days.first ||
      days.jump > 0.6 * days.typical || days.typical < 0.75 * days.before ||
      days.low < 0.4 * days.typical || days.high < 0.4 * days.typical ||
      days.falls < days.typical) {
    return false;
  }
  growth->kind = Evidence::Kind::kSameHour;
  growth->from = days.from;
  growth->ago = (kPairs + 24) * 60;
  growth->minutes = kPairs * 60;
  growth->rate_per_hour = days.typical / 24;
  return true;
}

// 1 % in codes, less than any demand asks for.
constexpr int kStill = 30;

// Whether the codes alone show that there is no growth: the newest floors are hardly above the
// lowest.
bool still(const Floors& floors, Scale scale, uint32_t end) {
  if (end < 2) {
    return true;
  }
  // Less 1, so that unknown is the highest.
  const auto order = [](Code code) { return static_cast<Code>(code - 1); };
  const Code* const ring = floors.ring(scale);
  Code low = UINT16_MAX;
  for (uint32_t i = 0; i < kWindows[scale]; ++i) {
    low = std::min(low, order(ring[i]));
  }
  const Code newest = std::min(order(floors.at(scale, end - 1)), order(floors.at(scale, end - 2)));
  return newest - low < kStill;
}

bool find(const Run& run, std::span<const Demand> demands, const Least& least, Growth* growth) {
  for (const Demand& demand : demands) {
    Trend trend;
    if (meets(run, demand, least, &trend)) {
      *growth = growth_of(run, demand, trend);
      return true;
    }
  }
  return false;
}

}  // namespace

bool find_suspicion(const Floors& floors, Scale scale, uint32_t minute, Resource resource,
                    Growth* growth) {
  static constexpr Demand kDemands[kScales] = {{13, 0.05, 0.35, 0.5, 0.6, 0.9, 5, 0.5},
                                               {13, 0.05, 0.35, 0.5, 0.6, 0.85, 5, 0.5},
                                               {9, 0.05, 0.3, 0.5, 0.6, 0.8, 4, 0.5}};
  const uint32_t end = minute / kMinutesPerWindow[scale];
  return !still(floors, scale, end) &&
         find(unroll(floors, scale, end, kWindows[scale]), {&kDemands[scale], 1},
              least_of(resource, scale == kHours), growth);
}

bool find_leak(const Floors& floors, uint32_t minute, Resource resource, Growth* growth) {
  static constexpr Demand kHourly[] = {
      {15, 0.05, 0.4, 0.4, 0.75, 0.85, 5, 0.6, 0.045},
      {20, 0.05, 0.4, 0.4, 0.75, 0.85, 5, 0.6, 0.045},
      {24, 0.06, 0.4, 0.4, 0.75, 0.85, 5, 0.6, 0.045},
      {36, 0.08, 0.25, 0.4, 0.6, 0.75, 5, 0.3},
      {71, 0.12, 0.25, 0.5, 0.7, 0.7, 5, 0.3},
  };
  // Under a sawtooth of hours: 36 hours.
  static constexpr Demand kMerged[] = {{9, 0.06, 0.35, 0.4, 0.6, 0.8, 4, 0.6}};
  static constexpr Demand kMergedMore[] = {{9, 0.1, 0.25, 0.4, 0.6, 0.75, 4, 0.3}};  // 72 hours
  const uint32_t end = minute / kMinutesPerWindow[kHours];
  if (still(floors, kHours, end)) {
    return false;
  }
  const Run hours = unroll(floors, kHours, end, kWindows[kHours]);
  const Least least = least_of(resource, true);
  const auto search = [&](const Run& run, std::span<const Demand> demands) {
    for (const Demand& demand : demands) {
      Trend trend;
      if (meets(run, demand, least, &trend) && lasts(run, demand, trend)) {
        *growth = growth_of(run, demand, trend);
        return true;
      }
    }
    return false;
  };
  return search(hours, kHourly) || search(merge(hours, 4), kMerged) ||
         search(merge(hours, 8), kMergedMore) || leaks_by_same_hour(hours, resource, growth);
}

bool find_rush(const Floors& floors, Scale scale, uint32_t minute, Resource resource,
               Growth* growth) {
  static constexpr Demand kDemands[] = {{9, 0.03, 0.4, 0.5, 0.6, 0.85, 4, 0.5},
                                        {13, 0.03, 0.35, 0.5, 0.6, 0.85, 5, 0.5},
                                        {15, 0.03, 0.1, 0.4, 0.6, 0.8, 3, 0.5}};
  static constexpr Demand kMinute[] = {{14, 0.1, 0.6, 0.6, 0.75, 0.95, 7, 0.8}};
  static constexpr Demand kFewHours[] = {{5, 0.03, 0.5, 0.5, 0.6, 1, 3.5, 0.5}};
  const uint32_t end = minute / kMinutesPerWindow[scale];
  // A cache fills as fast; a process that gathers files in minutes seldom stops in time.
  if ((scale == kMinutes && resource == Resource::kMemory) || still(floors, scale, end)) {
    return false;
  }
  const Run run = unroll(floors, scale, end, kWindows[scale]);
  const std::span<const Demand> demands =
      scale == kMinutes ? std::span<const Demand>(kMinute) : std::span<const Demand>(kDemands);
  if (!find(run, demands, least_of(resource, false), growth) &&
      (scale != kHours || !find(run, kFewHours, least_of(resource, true), growth))) {
    return false;
  }
  // What the process needed before, it may need again.
  const uint32_t hour = minute / kMinutesPerWindow[kHours];
  const Run hours = unroll(floors, kHours, hour, kWindows[kHours]);
  const uint32_t within = growth->minutes / 60 + 1;
  double highest = 0;
  for (uint32_t i = 0; i + within < hours.count; ++i) {
    highest = std::max(highest, hours.level[i]);
  }
  const double gain = growth->rate_per_hour * growth->minutes / 60;
  return growth->from + 0.5 * gain > highest;
}

}  // namespace judge
