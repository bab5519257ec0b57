// One resource of one process: its floors, and what was told of it. It decides when the state
// changes; who the process is, is not its business.
#ifndef JUDGE_HISTORY_H_
#define JUDGE_HISTORY_H_

#include <cmath>
#include <cstdint>
#include <utility>

#include "judge/floors.h"
#include "judge/rules.h"
#include "judge/sample.h"

namespace judge {

// A sample that begins a new minute. Minutes are counted from the first sample of the process.
struct Moment {
  uint32_t before;  // the minute of the last sample
  uint32_t minute;  // ... and of this one
  double now;       // level
  double limit;     // infinity if unknown
};

// A change of state and why. For an end only `state` and `evidence` are set.
struct Change {
  State state = State::kNone;
  double rate_per_hour = 0;
  double seconds_to_limit = HUGE_VAL;
  Evidence evidence{};
};

class History {
 public:
  // Takes a level, after look() if that is due.
  void take(uint32_t level) { floors_.take(level); }
  // Closes the windows that end, whether or not the level is known.
  void advance(uint32_t before, uint32_t minute) { floors_.advance(before, minute); }
  // Judges what has closed; true if the state changes.
  bool look(const Moment& moment, Resource resource, Change* change);
  // The process has ended; true if there was something to end.
  bool end() { return std::exchange(state_, State::kNone) != State::kNone; }

  // Of the growth that was told last.
  double from() const { return decode(from_); }
  uint32_t since() const { return since_; }  // minute
  // The lowest level of the minute that was last known; 0 if none is.
  double last(uint32_t minute) const;
  // The nearest limit when it was last known; infinity if never.
  double limit() const { return limit_; }
  // What was told and has not ended, as it stands at the open minute; false if there is nothing.
  bool told(uint32_t minute, Change* change) const;

  // Shows every part of `history` to `visit`, each a number or an array of them, in a fixed order.
  template <typename H, typename Visit>
  static void visit(H& history, Visit& visit) {
    visit(history.floors_.minutes);
    visit(history.floors_.eights);
    visit(history.floors_.hours);
    visit(history.floors_.peaks);
    visit(history.floors_.high);
    visit(history.floors_.low);
    visit(history.floors_.low_of_eight);
    visit(history.floors_.low_of_hour);
    visit(history.from_);
    visit(history.rate_);
    visit(history.limit_);
    visit(history.since_);
    visit(history.peak_at_);
    visit(history.alerted_at_);
    visit(history.newest_);
    visit(history.peak_);
    visit(history.ceiling_);
    visit(history.span_);
    visit(history.state_);
    visit(history.kind_);
    visit(history.agreed_);
  }
  // Whether such parts, from outside, can be those of a history at the open minute.
  bool is_sound(uint32_t minute) const;

 private:
  static constexpr uint32_t kNever = UINT32_MAX;

  bool closed(Scale scale, const Moment& moment) const;
  State worst(const Moment& moment, Resource resource, Growth* growth);
  bool is_near(const Moment& moment) const;
  double height(const Moment& moment, double rate_per_hour) const;
  double fast_rate(uint32_t minute) const;
  double seconds_left(const Moment& moment, double rate_per_hour) const;
  void enter(State state, const Growth& growth, uint32_t minute);
  bool is_over(const Moment& moment, Evidence* evidence);

  Floors floors_{};
  float rate_ = 0;                // an hour, of that growth when it was last looked at
  float limit_ = HUGE_VALF;       // the nearest one when it was last known
  uint32_t since_ = 0;            // when it began
  uint32_t peak_at_ = 0;          // when the highest floor since then was reached
  uint32_t alerted_at_ = kNever;  // when it was last confirmed or urgent
  Code from_ = 1;                 // level when the growth that was told began
  Code newest_ = 0;               // the last known floor of a minute
  Code peak_ = 0;                 // the highest floor since the growth was told
  Code ceiling_ = 0;              // the highest of what was told before and ended
  uint16_t span_ = 0;             // minutes that the evidence covered
  State state_ = State::kNone;
  Evidence::Kind kind_ = Evidence::Kind::kGrowth;
  uint8_t agreed_ = 0;  // looks by the hour that found a leak, less those that did not
};
static_assert(sizeof(History) <= 256);

}  // namespace judge

#endif  // JUDGE_HISTORY_H_
