// Made lives of processes, healthy and leaking: what the judge is measured on. A kind is a form of
// growth with random parameters; a life is one process of a kind, seen at an interval of its own.
#ifndef BENCH_LEAKS_LIFE_H_
#define BENCH_LEAKS_LIFE_H_

#include <cmath>
#include <cstdint>
#include <functional>
#include <random>
#include <string>
#include <vector>

#include "judge/sample.h"

namespace leaks {

constexpr double kMinute = 60;
constexpr double kHour = 3600;
constexpr double kDay = 24 * kHour;
constexpr double kEver = 96 * kHour;

class Random {
 public:
  explicit Random(uint64_t seed) : engine_(seed) {}
  double uniform(double low, double high) {
    return low + (high - low) * (static_cast<double>(engine_() >> 11) * 0x1p-53);
  }
  // Every factor between the two is as likely.
  double scale(double low, double high) { return std::exp(uniform(std::log(low), std::log(high))); }
  bool chance(double part) { return uniform(0, 1) < part; }
  double normal() { return normal_(engine_); }
  // Time to the next of events that come so often on average.
  double wait(double mean) { return -mean * std::log(1 - uniform(0, 1)); }

 private:
  std::mt19937_64 engine_;
  std::normal_distribution<double> normal_{};
};

// A level over time, in seconds since the process began; called with times that go forward.
using Level = std::function<double(double)>;

struct Life {
  double duration = kEver;
  Level memory{};   // kB
  Level threads{};  // counts; constant unless set
  Level files{};
  bool leaks = false;
  judge::Resource resource = judge::Resource::kMemory;  // that leaks
  double onset = 0;                                     // when it begins to
  bool peaks = false;  // without the leak it needs more than at its onset, at times
};

struct Kind {
  const char* name;
  bool leaks;
  void (*make)(Random&, Life*);
};

// The kinds that the judge was tuned on: the first ones, and those that were held back until it was
// done for the first time. And those that were sealed until it was done for the last time.
extern const std::vector<Kind> kTuned;
extern const std::vector<Kind> kHeld;
extern const std::vector<Kind> kBlind;

struct Point {
  double time;
  int64_t memory_kb, swap_kb, threads, open_files;  // kUnknown where not read
};

struct Trace {
  std::string kind;
  bool leaks = false;
  judge::Resource resource = judge::Resource::kMemory;
  double onset = 0;
  double interval = 0;
  std::vector<Point> points{};
  int64_t limits[judge::kResources] = {judge::kUnknown, judge::kUnknown, judge::kUnknown};
  double limit_at = HUGE_VAL;  // when the leak reached it, which ends the life
};

// One life of the kind as it is seen: with noise, spikes, pages taken back, gaps and suspends.
Trace see(const Kind& kind, uint64_t seed);

// --- What kinds are made of.

// Says that the life leaks, what and from when on.
inline void leak(Life* life, double onset, judge::Resource resource = judge::Resource::kMemory) {
  life->leaks = true;
  life->onset = onset;
  life->resource = resource;
}

// How busy a service is, about 0 to 1: days of different height, and noise.
Level daily_load(Random& random, double depth);
// Noise that forgets itself after `memory` seconds, around 0.
Level wander(Random& random, double deviation, double memory);
// 1 while one of randomly coming bursts of about `length` lasts, else 0.
Level bursts(Random& random, double every, double length);
// The highest that `level` was.
Level kept(Level level);
// The integral of `rate` (per hour) over time.
Level total(Level rate);
inline Level constant(double level) {
  return [level](double) { return level; };
}

}  // namespace leaks

#endif  // BENCH_LEAKS_LIFE_H_
