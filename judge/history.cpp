#include "judge/history.h"

#include <algorithm>

namespace judge {
namespace {

// All in minutes.
constexpr uint32_t kGap = 20;         // between two samples; more is missing time
constexpr uint32_t kPause = 25 * 60;  // from one alert to the next
constexpr uint32_t kCalm = 26 * 60;   // without a new height: what was confirmed has ended
constexpr uint32_t kCalmLeast = 30;   // likewise for what was suspected: twice its evidence
constexpr uint32_t kCalmMost = 12 * 60;
// Down for so many windows, to a fifth of the gain: it fell back.
constexpr uint32_t kDownHours = 6;
constexpr uint32_t kDownEights = 3;
constexpr double kDownPart = 0.2;
// Codes above the last height, about 0.1 % and 3 %, that count as higher.
constexpr Code kHigher = 4;
constexpr Code kMuchHigher = 100;

constexpr double kSoon = 3600;      // s
constexpr double kSoonRash = 3000;  // likewise without confirmation
constexpr uint32_t kNeedHours = 8;  // in which a process shows what it needs beside its floor
constexpr uint32_t kBurstHours = 24;

constexpr int kAgree = 2;  // looks by the hour that have to agree

}  // namespace

bool History::closed(Scale scale, const Moment& moment) const {
  return moment.before / kMinutesPerWindow[scale] != moment.minute / kMinutesPerWindow[scale];
}

double History::last(uint32_t minute) const {
  if (floors_.low != Floors::kNone) {
    return floors_.low;
  }
  const Code code = minute > 0 ? floors_.at(kMinutes, minute - 1) : Code{0};
  return code != 0 ? decode(code) : newest_ != 0 ? decode(newest_) : 0;
}

// Whether the limit may be an hour away. It seldom is, and the rest is dear.
bool History::is_near(const Moment& moment) const {
  const Code highest = *std::max_element(std::begin(floors_.peaks), std::end(floors_.peaks));
  return moment.limit < 2 * std::max(moment.now, highest != 0 ? decode(highest) : 0);
}

// What the limit has to be above: the floor, as far as it may have risen since it was known. Of
// what is confirmed also what it needs beside its floor, in each of its last hours. A single spike
// does not count.
double History::height(const Moment& moment, double rate_per_hour) const {
  const double hours = (moment.minute - moment.before + 1) / 60.0;
  const double level =
      newest_ != 0 ? std::min(moment.now, decode(newest_) + rate_per_hour * hours) : moment.now;
  const uint32_t end = moment.minute / kMinutesPerWindow[kHours];
  if (state_ < State::kConfirmed || end < kPeaks) {
    return level;
  }
  double floor = 0;
  double above = HUGE_VAL;
  for (uint32_t ago = 1; ago <= std::min(end, kNeedHours); ++ago) {
    const Code low = floors_.at(kHours, end - ago);
    floor = low != 0 ? std::max(floor, decode(low)) : floor;
    if (ago <= kPeaks) {
      const Code peak = floors_.peaks[(end - ago) % kPeaks];
      above = std::min(above, low != 0 && peak > low ? decode(peak) - decode(low) : 0);
    }
  }
  return std::max(level, floor + above);
}

// The rate in the fastest but one of the last hours, if that is more: what leaks in bursts or steps
// reaches its limit with one of them. Only new heights count.
double History::fast_rate(uint32_t minute) const {
  const uint32_t end = minute / kMinutesPerWindow[kHours];
  double highest = HUGE_VAL;
  double first = rate_;
  double second = rate_;
  for (uint32_t hour = end - std::min(end, kBurstHours); hour < end; ++hour) {
    const Code code = floors_.at(kHours, hour);
    if (code != 0) {
      const double rise = std::max(0.0, decode(code) - highest);
      second = std::max(second, std::min(first, rise));
      first = std::max(first, rise);
      highest = highest == HUGE_VAL ? decode(code) : highest + rise;
    }
  }
  return second;
}

double History::seconds_left(const Moment& moment, double rate_per_hour) const {
  if (moment.limit == HUGE_VAL || rate_per_hour <= 0) {
    return HUGE_VAL;
  }
  return std::max(0.0, moment.limit - height(moment, rate_per_hour)) / rate_per_hour * 3600;
}

// The worst state that what is known now speaks for, and the growth behind it.
State History::worst(const Moment& moment, Resource resource, Growth* growth) {
  Growth found;
  State state = State::kNone;
  if (closed(kHours, moment)) {
    const bool leaks = find_leak(floors_, moment.minute, resource, &found);
    agreed_ = static_cast<uint8_t>(leaks         ? std::min(agreed_ + 1, 200)
                                   : agreed_ > 0 ? agreed_ - 1
                                                 : 0);
    if (leaks) {
      rate_ = static_cast<float>(found.rate_per_hour);
      if (agreed_ >= kAgree) {
        state = State::kConfirmed;
        *growth = found;
      }
    }
  }
  const bool confirmed = state_ == State::kConfirmed || state == State::kConfirmed;
  if (confirmed && state_ < State::kUrgent && is_near(moment)) {
    const double rate = fast_rate(moment.minute);
    if (seconds_left(moment, rate) <= kSoon) {
      if (state == State::kNone) {
        const uint32_t ago = moment.minute - since_;
        *growth = {Evidence::Kind::kGrowth, from(), ago, ago, rate};
      }
      growth->rate_per_hour = rate;
      return State::kUrgent;
    }
  }
  for (const Scale scale : {kHours, kEights, kMinutes}) {
    if (state_ < State::kUrgent && can_rush(moment.now, moment.limit, scale) &&
        find_rush(floors_, scale, moment.minute, resource, &found)) {
      // The shorter the growth was seen, the nearer the limit has to be.
      const double seen = 60.0 * (found.minutes / 2 + moment.minute - moment.before);
      if (seconds_left(moment, found.rate_per_hour) <=
          (confirmed ? kSoon : std::min(kSoonRash, seen))) {
        *growth = found;
        return State::kUrgent;
      }
    }
  }
  for (const Scale scale : {kHours, kEights, kMinutes}) {
    if (state == State::kNone && state_ == State::kNone && closed(scale, moment) &&
        find_suspicion(floors_, scale, moment.minute, resource, &found)) {
      state = State::kSuspected;
      *growth = found;
    }
  }
  return state;
}

void History::enter(State state, const Growth& growth, uint32_t minute) {
  const uint32_t since = minute - std::min(minute, growth.ago);
  if (state_ == State::kNone) {
    peak_ = newest_;
    peak_at_ = minute;
  }
  if (state_ == State::kNone || since < since_) {
    from_ = encode(static_cast<uint32_t>(std::lround(growth.from)));
    since_ = since;
  }
  state_ = state;
  kind_ = growth.kind;
  rate_ = static_cast<float>(growth.rate_per_hour);
  span_ = static_cast<uint16_t>(std::min(growth.minutes, uint32_t{UINT16_MAX}));
  if (state >= State::kConfirmed) {
    alerted_at_ = minute;
  }
}

// Whether the growth that was told is over.
bool History::is_over(const Moment& moment, Evidence* evidence) {
  if (newest_ > peak_ + kHigher) {
    peak_ = newest_;
    peak_at_ = moment.minute;
    return false;
  }
  const bool alert = state_ >= State::kConfirmed;
  const uint32_t calm = alert ? kCalm : std::clamp(span_ * 2U, kCalmLeast, kCalmMost);
  if (moment.minute - peak_at_ > calm) {
    *evidence = {Evidence::Kind::kStopped, calm * 60.0};
    return true;
  }
  const Scale scale = alert ? kHours : kEights;
  const uint32_t windows = alert ? kDownHours : kDownEights;
  const uint32_t end = moment.minute / kMinutesPerWindow[scale];
  if (!closed(scale, moment) || end < windows) {
    return false;
  }
  const double low = from() + kDownPart * (decode(peak_) - from());
  for (uint32_t i = 1; i <= windows; ++i) {
    const Code code = floors_.at(scale, end - i);
    if (code == 0 || decode(code) >= low) {
      return false;
    }
  }
  *evidence = {Evidence::Kind::kFellBack, windows * kMinutesPerWindow[scale] * 60.0};
  return true;
}

bool History::told(uint32_t minute, Change* change) const {
  *change = {state_,
             rate_,
             seconds_left({minute, minute, last(minute), limit_}, rate_),
             {kind_, span_ * 60.0}};
  return state_ != State::kNone;
}

bool History::is_sound(uint32_t minute) const {
  return from_ > 0 && std::isfinite(rate_) && limit_ >= 0 && std::max(since_, peak_at_) <= minute &&
         (alerted_at_ <= minute || alerted_at_ == kNever) && state_ < State::kEnded &&
         kind_ <= Evidence::Kind::kSameHour;
}

bool History::look(const Moment& moment, Resource resource, Change* change) {
  const uint32_t passed = moment.minute - moment.before;
  const Code code = floors_.at(kMinutes, moment.before);
  newest_ = passed <= kWindows[kMinutes] && code != 0 ? code : newest_;
  limit_ = static_cast<float>(moment.limit);
  if (passed > kGap) {
    peak_at_ += passed;
  }

  Growth growth;
  State state = worst(moment, resource, &growth);
  if (state >= State::kConfirmed && state_ < State::kConfirmed && alerted_at_ != kNever &&
      moment.minute - alerted_at_ < kPause) {
    state = State::kNone;
  }
  if (state == State::kSuspected && ceiling_ != 0 && newest_ <= ceiling_ + kMuchHigher) {
    state = State::kNone;
  }
  if (state > state_) {
    *change = {state,
               growth.rate_per_hour,
               seconds_left(moment, growth.rate_per_hour),
               {growth.kind, growth.minutes * 60.0}};
    enter(state, growth, moment.minute);
    return true;
  }
  if (state_ == State::kNone || !is_over(moment, &change->evidence)) {
    return false;
  }
  ceiling_ = std::max(ceiling_, peak_);
  state_ = State::kNone;
  change->state = State::kEnded;
  return true;
}

}  // namespace judge
