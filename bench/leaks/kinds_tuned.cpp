// The kinds that the judge was tuned on.
#include <algorithm>

#include "leaks/life.h"

namespace leaks {
namespace {

double base(Random& r) {
  return r.scale(3e3, 3e6);
}

// --- Healthy.

void flat(Random& r, Life* life) {
  life->memory = constant(base(r));
}

void warm_up(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.1, 20), tau = r.scale(60, 6 * kHour);
  life->memory = [=](double t) { return b + a * (1 - std::exp(-t / tau)); };
}

void cache_fills(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.2, 20), full = r.scale(600, 11 * kHour);
  life->memory = [=](double t) { return b + a * std::min(1.0, t / full); };
}

void cache_fills_by_load(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.2, 10), scale = r.scale(0.5, 8);
  Level work = total(daily_load(r, r.uniform(0.3, 0.9)));
  life->memory = [=](double t) mutable { return b + a * (1 - std::exp(-work(t) / scale)); };
}

void daily(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.1, 2);
  Level load = daily_load(r, r.uniform(0.5, 1));
  life->memory = [=](double t) mutable { return b + a * load(t); };
}

void daily_kept(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.1, 2);
  Level load = kept(daily_load(r, r.uniform(0.5, 1)));
  life->memory = [=](double t) mutable { return b + a * load(t); };
}

void daily_files(Random& r, Life* life) {
  const double b = r.scale(20, 300), a = b * r.scale(0.3, 5);
  Level load = daily_load(r, r.uniform(0.5, 1));
  life->files = [=](double t) mutable { return std::floor(b + a * load(t)); };
  Level pool = daily_load(r, 1);
  life->threads = [=](double t) mutable { return std::floor(10 + 40 * pool(t)); };
}

void steps(Random& r, Life* life) {
  std::vector<std::pair<double, double>> at;
  const double b = base(r);
  for (int i = static_cast<int>(r.uniform(1, 5)); i > 0; --i) {
    at.emplace_back(r.uniform(0, kEver), b * r.uniform(-0.2, 0.6));
  }
  life->memory = [=](double t) {
    double level = b;
    for (const auto& [when, by] : at) level += t > when ? by : 0;
    return level;
  };
}

void sawtooth(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.2, 4), period = r.scale(20, 4 * kHour);
  Level slow = wander(r, 0.1, 3 * kHour);
  life->memory = [=, phase = 0.0, last = 0.0](double t) mutable {
    phase += (t - last) / period * std::max(0.2, 1 + slow(t));
    last = t;
    return b + a * (phase - std::floor(phase));
  };
}

void bursty_work(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.2, 10);
  Level on = bursts(r, r.scale(600, 6 * kHour), r.scale(30, 2 * kHour));
  life->memory = [=](double t) mutable { return b + a * on(t); };
}

void nightly(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.2, 5), at = r.uniform(0, kDay);
  const double length = r.scale(600, 3 * kHour), stays = r.chance(0.5) ? r.uniform(0, 0.3) : 0;
  life->memory = [=](double t) {
    const double since = std::fmod(t + at, kDay);
    const bool ran = t + at > kDay;
    return b + (since < length ? a * std::min(1.0, since / length * 3) : ran ? a * stays : 0);
  };
}

void logarithmic(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.05, 0.6), t0 = r.scale(60, 2 * kHour);
  life->memory = [=](double t) { return b + a * std::log1p(t / t0); };
}

void compiler(Random& r, Life* life) {
  life->duration = r.scale(20, 1200);
  const double a = r.scale(5e4, 4e6), full = life->duration * r.uniform(0.5, 1);
  life->memory = [=](double t) { return 5e3 + a * std::min(1.0, t / full); };
}

void worker(Random& r, Life* life) {
  life->duration = r.scale(1200, 12 * kHour);
  const double b = base(r), a = b * r.scale(0.2, 3), tau = life->duration * r.uniform(0.1, 0.6);
  life->memory = [=](double t) { return b + a * (1 - std::exp(-t / tau)); };
}

void pool(Random& r, Life* life) {
  const double most = r.scale(20, 400), tau = r.scale(300, 5 * kHour);
  Level queue = bursts(r, 1800, 300);
  life->threads = [=](double t) mutable {
    return std::floor(2 + most * (1 - std::exp(-t / tau)) + 8 * queue(t));
  };
  life->files = [=](double t) { return std::floor(20 + 2 * most * (1 - std::exp(-t / tau))); };
}

// --- Leaking.

// Per hour, of a level: most are small.
double pace(Random& r) {
  return r.scale(0.005, 0.1);
}

void steady(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r);
  leak(life, 0);
  life->memory = [=](double t) { return b + rate * t / kHour; };
}

void stepwise(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), step = r.scale(600, 5 * kHour);
  leak(life, 0);
  life->memory = [=](double t) { return b + rate * std::floor(t / step) * step / kHour; };
}

void in_bursts(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), every = r.scale(600, 4 * kHour);
  const double length = every * r.uniform(0.05, 0.5);
  leak(life, 0);
  Level lost = total(bursts(r, every, length));
  life->memory = [=](double t) mutable { return b + rate * (every + length) / length * lost(t); };
}

void late(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), onset = r.uniform(4, 40) * kHour;
  leak(life, onset);
  life->memory = [=](double t) { return b + rate * std::max(0.0, t - onset) / kHour; };
}

void by_load(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r);
  leak(life, 0);
  Level lost = total(daily_load(r, r.uniform(0.4, 1)));
  life->memory = [=](double t) mutable { return b + rate * 1.5 * lost(t); };
}

void under_load(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), a = b * r.scale(0.05, 0.6);
  leak(life, 0);
  life->peaks = true;
  Level load = daily_load(r, r.uniform(0.5, 1));
  life->memory = [=](double t) mutable { return b + a * load(t) + rate * t / kHour; };
}

void after_warm_up(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.2, 4), tau = r.scale(600, 4 * kHour);
  const double rate = (a + b) * pace(r);
  leak(life, 3 * tau);
  life->memory = [=](double t) { return b + a * (1 - std::exp(-t / tau)) + rate * t / kHour; };
}

void sawtooth_leak(Random& r, Life* life) {
  sawtooth(r, life);
  leak(life, 0);
  life->peaks = true;
  life->memory = [=, teeth = life->memory, rate = life->memory(0) * pace(r)](double t) {
    return teeth(t) + rate * t / kHour;
  };
}

void files(Random& r, Life* life) {
  const double b = r.scale(5, 300), each = r.scale(10, 1800);
  leak(life, 0, judge::Resource::kOpenFiles);
  life->files = [=](double t) { return std::floor(b + t / each); };
}

void files_late(Random& r, Life* life) {
  const double b = r.scale(5, 300), each = r.scale(60, 1800), onset = r.uniform(2, 30) * kHour;
  leak(life, onset, judge::Resource::kOpenFiles);
  life->files = [=](double t) { return std::floor(b + std::max(0.0, t - onset) / each); };
}

void threads(Random& r, Life* life) {
  const double b = r.scale(1, 80), each = r.scale(30, 5400);
  leak(life, 0, judge::Resource::kThreads);
  life->threads = [=](double t) { return std::floor(b + t / each); };
}

void threads_in_bursts(Random& r, Life* life) {
  const double b = r.scale(1, 80), each = r.scale(60, 3600), every = r.scale(600, 3 * kHour);
  leak(life, 0, judge::Resource::kThreads);
  Level lost = total(bursts(r, every, every / 4));
  life->threads = [=](double t) mutable { return std::floor(b + 5 * kHour / each * lost(t)); };
}

}  // namespace

const std::vector<Kind> kTuned = {
    {"flat", false, flat},
    {"warm-up", false, warm_up},
    {"cache that fills", false, cache_fills},
    {"cache filled by load", false, cache_fills_by_load},
    {"daily load", false, daily},
    {"daily load, memory kept", false, daily_kept},
    {"daily load, files and threads", false, daily_files},
    {"steps of configuration", false, steps},
    {"sawtooth", false, sawtooth},
    {"bursts", false, bursty_work},
    {"nightly job", false, nightly},
    {"logarithmic growth", false, logarithmic},
    {"compiler", false, compiler},
    {"worker", false, worker},
    {"pool of threads", false, pool},
    {"steady leak", true, steady},
    {"stepwise leak", true, stepwise},
    {"leak in bursts", true, in_bursts},
    {"late leak", true, late},
    {"leak by load", true, by_load},
    {"leak under daily load", true, under_load},
    {"leak after a warm-up", true, after_warm_up},
    {"leak below a sawtooth", true, sawtooth_leak},
    {"leak of files", true, files},
    {"late leak of files", true, files_late},
    {"leak of threads", true, threads},
    {"leak of threads in bursts", true, threads_in_bursts},
};

}  // namespace leaks
