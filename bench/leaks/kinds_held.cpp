// The kinds that were held back: looked at once the judge was done.
#include <algorithm>
#include <memory>

#include "leaks/life.h"

namespace leaks {
namespace {

double base(Random& r) {
  return r.scale(2e3, 5e6);
}

// Busy in office hours, with ramps of an hour or two, and quiet at weekends.
Level office_load(Random& r) {
  const double shift = r.uniform(0, 7 * kDay), ramp = r.scale(0.3, 2.5) * kHour;
  Level noise = wander(r, 0.08, 1200);
  return [=](double t) mutable {
    const double week = std::fmod(t + shift, 7 * kDay);
    const double day = std::fmod(week, kDay);
    const double rise = std::clamp((day - 8 * kHour) / ramp, 0.0, 1.0);
    const double fall = std::clamp((18 * kHour - day) / ramp, 0.0, 1.0);
    const double height = week > 5 * kDay ? 0.2 : 1;
    return std::max(0.0, 0.1 + 0.9 * height * std::min(rise, fall) + noise(t) * height);
  };
}

// --- Healthy.

void hyperbolic(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.2, 10), half = r.scale(300, 3 * kHour);
  life->memory = [=](double t) { return b + a * t / (t + half); };
}

void office(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.1, 3);
  Level load = office_load(r);
  life->memory = [=](double t) mutable { return b + a * load(t); };
}

void office_slow_return(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.1, 2), tau = r.scale(1, 12) * kHour;
  Level load = office_load(r);
  life->memory = [=, held = 0.0, last = 0.0](double t) mutable {
    held = std::max(load(t), held * std::exp((last - t) / tau));
    last = t;
    return b + a * held;
  };
}

void buffers(Random& r, Life* life) {
  // Pages are hit at random: the fuller the pool, the rarer a new one.
  const double b = base(r), a = b * r.scale(0.5, 8), scale = r.scale(0.3, 5);
  Level work = total(office_load(r));
  life->memory = [=](double t) mutable { return b + a * (1 - std::exp(-work(t) / scale)); };
}

void generations(Random& r, Life* life) {
  // Young collections every minute or so, an old one every few hours.
  const double b = base(r), young = b * r.scale(0.1, 1), old = b * r.scale(0.2, 2);
  const double minor = r.scale(20, 300), major = r.scale(1, 7) * kHour, skew = r.uniform(0.7, 1.3);
  life->memory = [=](double t) {
    const double m = t / minor, o = t / major;
    return b + young * (m - std::floor(m)) + old * std::pow(o - std::floor(o), skew);
  };
}

void compaction(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.3, 3);
  auto load = daily_load(r, 0.5);
  const double period = r.scale(2, 10);
  life->memory = [=, work = total(load)](double t) mutable {
    const double full = work(t) / period;
    return b + a * (full - std::floor(full));
  };
}

void fragmentation(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.05, 0.5), tau = r.scale(1, 5) * kHour;
  Level churn = wander(r, 0.03, 1800);
  life->memory = [=](double t) mutable {
    return (b + a * std::sqrt(1 - std::exp(-t / tau))) * (1 + churn(t));
  };
}

void drunk(Random& r, Life* life) {
  const double b = base(r);
  Level walk = wander(r, r.uniform(0.05, 0.3), r.scale(1, 8) * kHour);
  life->memory = [=](double t) mutable { return b * std::exp(walk(t)); };
}

void hourly(Random& r, Life* life) {
  const double b = base(r), a = b * r.scale(0.1, 5), length = r.scale(60, 2400);
  const double kept_share = r.uniform(0, 0.2);
  life->memory = [=](double t) {
    const double in = std::fmod(t, kHour);
    return b + (in < length ? a : t > kHour ? a * kept_share : 0);
  };
}

void reloads(Random& r, Life* life) {
  // Sessions gather over hours; a reload throws them away.
  const double b = base(r), a = b * r.scale(0.1, 2), every = r.scale(3, 9) * kHour;
  life->memory = [=](double t) {
    const double in = std::fmod(t, every);
    return b + a * (1 - std::exp(-3 * in / every));
  };
}

void connections(Random& r, Life* life) {
  const double b = r.scale(10, 200), a = b * r.scale(0.2, 10);
  Level load = office_load(r);
  life->files = [=](double t) mutable { return std::floor(b + a * load(t)); };
  life->memory = [=, m = base(r), l = office_load(r)](double t) mutable { return m * (1 + l(t)); };
}

void table_cache(Random& r, Life* life) {
  const double most = r.scale(50, 2000), scale = r.scale(0.2, 4);
  Level work = total(daily_load(r, 0.8));
  life->files = [=](double t) mutable {
    return std::floor(12 + most * (1 - std::exp(-work(t) / scale)));
  };
}

void elastic(Random& r, Life* life) {
  const double b = r.scale(3, 40), a = r.scale(5, 200);
  Level queue = bursts(r, r.scale(300, 2 * kHour), r.scale(60, kHour));
  life->threads = [=, level = 0.0, last = 0.0](double t) mutable {
    level = std::max(queue(t), level * std::exp((last - t) / 600));
    last = t;
    return std::floor(b + a * level);
  };
}

void build(Random& r, Life* life) {
  life->duration = r.scale(300, 3 * kHour);
  const double a = r.scale(1e5, 5e6), d = life->duration;
  life->memory = [=](double t) { return 1e4 + a * t / d; };
}

void set_by_hand(Random& r, Life* life) {
  // Steps, each with a warm-up of its own.
  std::vector<std::pair<double, double>> at;
  const double b = base(r), tau = r.scale(120, 2 * kHour);
  for (int i = static_cast<int>(r.uniform(1, 4)); i > 0; --i) {
    at.emplace_back(r.uniform(0, kEver), b * r.uniform(0.05, 1));
  }
  life->memory = [=](double t) {
    double level = b;
    for (const auto& [when, by] : at) {
      level += t > when ? by * (1 - std::exp((when - t) / tau)) : 0;
    }
    return level;
  };
}

// --- Leaking.

double pace(Random& r) {
  return r.scale(0.005, 0.15);
}

void straight(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r);
  Level churn = wander(r, 0.008, 1200);
  leak(life, 0);
  life->memory = [=](double t) mutable { return b * (1 + churn(t)) + rate * t / kHour; };
}

void per_request(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r);
  Level lost = total(office_load(r));
  leak(life, 0);
  life->memory = [=](double t) mutable { return b + 2.2 * rate * lost(t); };
}

void in_office(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), a = b * r.scale(0.05, 0.5);
  Level load = office_load(r);
  leak(life, 0);
  life->peaks = true;
  life->memory = [=](double t) mutable { return b + a * load(t) + rate * t / kHour; };
}

void old_generation(Random& r, Life* life) {
  const double rate = pace(r);
  generations(r, life);
  const double b = life->memory(0);
  leak(life, 0);
  life->peaks = true;
  life->memory = [=, heap = life->memory](double t) { return heap(t) + b * rate * t / kHour; };
}

void by_errors(Random& r, Life* life) {
  // A piece is lost at each error, and errors come in series.
  const double b = base(r), rate = b * pace(r), every = r.scale(300, 3 * kHour);
  auto own = std::make_shared<Random>(static_cast<uint64_t>(r.uniform(0, 1e15)));
  leak(life, 0);
  life->memory = [=, next = own->wait(every), lost = 0.0](double t) mutable {
    for (; next < t; next += own->wait(every)) {
      lost += rate * every / kHour * own->uniform(0, 2);
    }
    return b + lost;
  };
}

void at_each_reload(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), every = r.scale(0.5, 6) * kHour;
  leak(life, 0);
  life->memory = [=](double t) {
    const double n = std::floor(t / every);
    return b + rate * n * every / kHour + 0.05 * b * (1 - std::exp(-(t - n * every) / 600));
  };
}

void from_a_deploy(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), onset = r.uniform(6, 44) * kHour;
  const double step = b * r.uniform(0, 0.2);
  leak(life, onset);
  Level load = daily_load(r, 0.6);
  const double a = b * r.scale(0.01, 0.2);
  life->memory = [=](double t) mutable {
    return b + a * load(t) + (t > onset ? step + rate * (t - onset) / kHour : 0);
  };
}

void faster_and_faster(Random& r, Life* life) {
  const double b = base(r), rate = b * pace(r), power = r.uniform(1.1, 1.8);
  leak(life, 0);
  life->memory = [=](double t) { return b + rate * 12 * std::pow(t / kHour / 12, power); };
}

void sockets(Random& r, Life* life) {
  const double b = r.scale(8, 400), each = r.scale(20, 1800);
  Level load = office_load(r);
  const double a = r.scale(1, 20);
  leak(life, 0, judge::Resource::kOpenFiles);
  life->files = [=](double t) mutable { return std::floor(b + a * load(t) + t / each); };
}

void sockets_by_load(Random& r, Life* life) {
  const double b = r.scale(8, 400), each = r.scale(20, 1200);
  leak(life, 0, judge::Resource::kOpenFiles);
  Level lost = total(daily_load(r, r.uniform(0.5, 1)));
  life->files = [=](double t) mutable { return std::floor(b + 1.5 * kHour / each * lost(t)); };
}

void workers(Random& r, Life* life) {
  const double b = r.scale(2, 100), each = r.scale(60, 5400), onset = r.uniform(0, 20) * kHour;
  leak(life, onset, judge::Resource::kThreads);
  Level queue = bursts(r, 3600, 300);
  life->threads = [=](double t) mutable {
    return std::floor(b + 4 * queue(t) + std::max(0.0, t - onset) / each);
  };
}

}  // namespace

const std::vector<Kind> kHeld = {
    {"hyperbolic warm-up", false, hyperbolic},
    {"office hours", false, office},
    {"office hours, returned slowly", false, office_slow_return},
    {"pool of buffers", false, buffers},
    {"two generations", false, generations},
    {"compaction", false, compaction},
    {"fragmentation", false, fragmentation},
    {"wandering", false, drunk},
    {"hourly job", false, hourly},
    {"sessions until a reload", false, reloads},
    {"connections", false, connections},
    {"cache of tables", false, table_cache},
    {"elastic pool", false, elastic},
    {"build", false, build},
    {"settings by hand", false, set_by_hand},
    {"straight leak", true, straight},
    {"leak per request", true, per_request},
    {"leak in office hours", true, in_office},
    {"leak of the old generation", true, old_generation},
    {"leak by errors", true, by_errors},
    {"leak at each reload", true, at_each_reload},
    {"leak from a deploy on", true, from_a_deploy},
    {"faster and faster", true, faster_and_faster},
    {"leak of sockets", true, sockets},
    {"leak of sockets by load", true, sockets_by_load},
    {"leak of workers", true, workers},
};

}  // namespace leaks
