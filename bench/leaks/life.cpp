#include "leaks/life.h"

#include <algorithm>
#include <memory>

namespace leaks {
namespace {

double pick_interval(Random& random) {
  constexpr double kIntervals[] = {1,  2,  5,  10, 10, 15,  30,  30,  30,  60,
                                   60, 60, 60, 60, 60, 120, 120, 300, 300, 600};
  const double choice = random.uniform(0, 20);
  return choice < 0.3 ? 1 : kIntervals[static_cast<size_t>(choice)];
}

}  // namespace

Level wander(Random& random, double deviation, double memory) {
  auto own = std::make_shared<Random>(static_cast<uint64_t>(random.uniform(0, 1e15)));
  return [own, deviation, memory, last = 0.0, value = own->normal() * deviation](double t) mutable {
    const double keep = std::exp((last - t) / memory);
    value = value * keep + own->normal() * deviation * std::sqrt(1 - keep * keep);
    last = t;
    return value;
  };
}

Level daily_load(Random& random, double depth) {
  const double phase = random.uniform(0, kDay);
  std::vector<double> heights;
  for (int i = 0; i < 8; ++i) {
    heights.push_back(random.uniform(0.85, 1.15));
  }
  Level noise = wander(random, 0.06, 900);
  return [=](double t) mutable {
    const double day = (t + phase) / kDay;
    const double height = heights[static_cast<size_t>(day) % heights.size()];
    const double wave = (1 - std::cos(2 * M_PI * day)) / 2 * height;
    return std::max(0.0, 1 - depth + depth * wave + noise(t));
  };
}

Level bursts(Random& random, double every, double length) {
  auto own = std::make_shared<Random>(static_cast<uint64_t>(random.uniform(0, 1e15)));
  return [own, every, length, from = own->wait(every), to = 0.0](double t) mutable {
    if (to < from) {
      to = from + own->wait(length);
    }
    while (t > to) {
      from = to + own->wait(every);
      to = from + own->wait(length);
    }
    return t >= from ? 1.0 : 0.0;
  };
}

Level kept(Level level) {
  return [level, highest = 0.0](double t) mutable { return highest = std::max(highest, level(t)); };
}

Level total(Level rate) {
  return [rate, sum = 0.0, last = 0.0](double t) mutable {
    sum += rate(t) * (t - last) / kHour;
    last = t;
    return sum;
  };
}

Trace see(const Kind& kind, uint64_t seed) {
  Random random(seed);
  Life life;
  life.threads = constant(std::floor(random.scale(1, 80)));
  life.files = constant(std::floor(random.scale(5, 300)));
  life.memory = constant(random.scale(2e3, 2e6));
  kind.make(random, &life);

  Trace trace;
  trace.kind = kind.name;
  trace.leaks = kind.leaks;
  trace.resource = life.resource;
  trace.onset = life.onset;
  trace.interval = pick_interval(random);

  // The noise of resident memory: a share that comes and goes, spikes, and pages that the kernel
  // takes back (some to swap, which is read on some systems) and the process slowly faults in.
  Level jitter = wander(random, random.scale(0.0003, 0.01), random.scale(30, 7200));
  Level spikes = bursts(random, random.scale(600, 2e4), random.scale(5, 200));
  const double spike = random.scale(0.01, 0.5);
  const bool pressed = random.chance(0.2);
  const bool swaps = random.chance(0.5);
  double next_pressure = pressed ? random.wait(20 * kHour) : HUGE_VAL;
  double taken = 0;
  double returns = kHour;
  // Where counts are alive, so are small numbers of threads and files that come and go.
  Level comings = wander(random, random.chance(0.5) ? random.uniform(0, 3) : 0, 120);

  const bool limited = random.chance(0.5);
  double highest[judge::kResources] = {};
  std::vector<std::pair<double, double>> levels;  // of what leaks, without noise
  double skip_from = random.chance(0.25) ? random.uniform(0, life.duration) : HUGE_VAL;
  const double skip_to = skip_from + random.scale(600, 6 * kHour);
  const bool suspended = random.chance(0.5);  // the process as well, not only who watches
  double lost = 0;
  double last = 0;
  double step = trace.interval;
  double mean = 1;
  for (double t = random.uniform(0, step); t < kEver;
       t += step * (random.chance(0.02) ? random.uniform(1, 3) : mean)) {
    if (t > skip_from) {
      t = std::max(t, skip_to);
      lost = suspended ? skip_to - skip_from : 0;
      skip_from = HUGE_VAL;
    }
    const double lived = t - lost;
    if (lived > life.duration) {
      break;
    }
    const double clean[judge::kResources] = {life.memory(lived), life.threads(lived),
                                             life.files(lived)};
    if (lived > next_pressure) {
      taken = random.uniform(0.03, 0.25);
      returns = random.scale(600, 1e5);
      next_pressure = lived + random.wait(20 * kHour);
    }
    taken *= std::exp((last - lived) / returns);
    last = lived;
    const double size = clean[0] * (1 + jitter(lived) + spike * spikes(lived));
    const double come = std::max(0.0, std::round(comings(lived)));
    Point point{t, 0, judge::kUnknown, 0, 0};
    point.memory_kb = static_cast<int64_t>(size * (1 - taken) / 4) * 4;
    if (swaps) {
      point.swap_kb = static_cast<int64_t>(size * taken / 4) * 4;
    }
    point.threads = static_cast<int64_t>(clean[1] + std::min(come, 2.0));
    point.open_files = static_cast<int64_t>(clean[2] + come);
    trace.points.push_back(point);
    const size_t leaking = static_cast<size_t>(life.resource);
    levels.emplace_back(t, clean[leaking] * (leaking == 0 && !swaps ? 1 - taken : 1));
    for (size_t i = 0; i < judge::kResources; ++i) {
      highest[i] = std::max(highest[i], clean[i]);
    }
  }

  if (limited) {
    // A healthy process is given room; a leak finds its limit somewhere on its way.
    for (size_t i = 0; i < judge::kResources; ++i) {
      trace.limits[i] = static_cast<int64_t>(highest[i] / random.uniform(0.3, 0.85)) + 20;
    }
    if (kind.leaks) {
      // The level without noise counts: nobody can foresee that a spike reaches it.
      const size_t leaking = static_cast<size_t>(life.resource);
      const auto after = [&](double t) {
        return std::find_if(levels.begin(), levels.end(),
                            [&](const auto& seen) { return seen.first >= t; });
      };
      const auto begin = after(life.onset);
      const double from = begin != levels.end() ? begin->second : highest[leaking];
      // Room for what it needs without the leak, which the first hours show.
      double needs = from;
      for (auto seen = begin; seen != levels.end() && seen->first < life.onset + 6 * kHour;
           ++seen) {
        needs = life.peaks ? std::max(needs, seen->second) : needs;
      }
      const double limit = std::max(needs * random.uniform(1.3, 2),
                                    from + (highest[leaking] - from) * random.scale(0.03, 1.5));
      trace.limits[leaking] = static_cast<int64_t>(limit) + 1;
      const auto reached = std::find_if(levels.begin(), levels.end(),
                                        [&](const auto& seen) { return seen.second >= limit; });
      if (reached != levels.end()) {
        trace.limit_at = reached->first;
        trace.points.resize(static_cast<size_t>(reached - levels.begin()));
      }
    }
  }
  return trace;
}

}  // namespace leaks
