// The kinds that were sealed: written before the judge was changed for the last time, and looked at
// once after that. They follow how kinds of real programs behave.
#include <algorithm>
#include <deque>
#include <memory>

#include "leaks/life.h"

namespace leaks {
namespace {

double base(Random& r) {
  return r.scale(4e3, 4e6);
}

std::shared_ptr<Random> own(Random& r) {
  return std::make_shared<Random>(static_cast<uint64_t>(r.uniform(0, 1e15)));
}

// --- Healthy.

void mapped_file(Random& r, Life* life) {
  // A database that maps its file: popular pages are touched first, rare ones with the work.
  const double b = base(r), a = b * r.scale(0.3, 10), scale = r.scale(0.02, 0.6);
  const double tail = r.uniform(1.2, 3);
  Level work = total(daily_load(r, r.uniform(0.2, 0.9)));
  life->memory = [=](double t) mutable {
    return b + a * (1 - std::pow(1 + work(t) / scale, -tail));
  };
}

void kept_for_a_time(Random& r, Life* life) {
  // Entries of a cache expire: what is there is the work of the last hours.
  const double b = base(r), a = b * r.scale(0.2, 4), lasts = r.scale(0.1, 9) * kHour;
  Level work = total(daily_load(r, r.uniform(0.2, 0.9)));
  auto done = std::make_shared<std::deque<std::pair<double, double>>>();
  life->memory = [=](double t) mutable {
    done->emplace_back(t, work(t));
    while (done->front().first < t - lasts) {
      done->pop_front();
    }
    return b + a * (done->back().second - done->front().second) / (lasts / kHour);
  };
}

void capped(Random& r, Life* life) {
  // A resolver: each new name is kept until the cache is full.
  const double b = base(r), a = b * r.scale(0.2, 6), full = r.scale(0.3, 6);
  Level work = total(daily_load(r, r.uniform(0.3, 0.9)));
  life->memory = [=](double t) mutable { return b + a * std::min(1.0, work(t) / full); };
}

void mail_queue(Random& r, Life* life) {
  // A peer is away for hours, and the queue is worked off when it is back.
  const double b = base(r), a = b * r.scale(0.05, 0.6);
  auto chance = own(r);
  const double every = r.uniform(12, 60) * kHour;
  life->memory = [=, from = chance->wait(every), length = chance->uniform(1, 9) * kHour,
                  queued = 0.0, last = 0.0](double t) mutable {
    if (t > from + length) {
      from = t + chance->wait(every);
      length = chance->uniform(1, 9) * kHour;
    }
    const double hours = (t - last) / kHour;
    queued = t >= from ? queued + hours : std::max(0.0, queued - 5 * hours);
    last = t;
    return b + a * queued;
  };
}

void growing_heap(Random& r, Life* life) {
  // A managed heap is enlarged by a part of itself while it is too small, ever more seldom.
  const double b = base(r), by = r.uniform(1.1, 1.5), slower = r.uniform(1.4, 2.5);
  const double young = b * r.scale(0.05, 0.4), minor = r.scale(30, 900);
  const double most = b * r.scale(1.5, 8);
  life->memory = [=, heap = b, wait = r.scale(60, 1200), next = 600.0](double t) mutable {
    while (t > next) {
      heap = std::min(most, heap * by);
      wait *= slower;
      next += wait;
    }
    const double m = t / minor;
    return heap + young * (m - std::floor(m));
  };
}

void blocks_of_hours(Random& r, Life* life) {
  // A store of measurements: the newest block grows, and is written out every two hours; a few
  // written ones stay mapped.
  const double b = base(r), head = b * r.scale(0.2, 1.5), each = b * r.scale(0.02, 0.3);
  const double period = r.uniform(1, 3) * kHour, stay = std::floor(r.uniform(1, 5));
  life->memory = [=](double t) {
    const double blocks = t / period;
    return b + head * (blocks - std::floor(blocks)) + each * std::min(std::floor(blocks), stay);
  };
}

void backup(Random& r, Life* life) {
  // Every night all is read; what was read leaves memory slowly.
  const double b = base(r), a = b * r.scale(0.1, 3), at = r.uniform(0, kDay);
  const double length = r.uniform(0.3, 4) * kHour, tau = r.uniform(0.5, 9) * kHour;
  life->memory = [=, held = 0.0, last = 0.0](double t) mutable {
    const bool runs = std::fmod(t + at, kDay) < length;
    held = runs ? std::min(1.0, held + (t - last) / length) : held * std::exp((last - t) / tau);
    last = t;
    return b + a * held;
  };
}

void stages(Random& r, Life* life) {
  // A computation in stages, each with a need of its own.
  const double b = base(r), a = b * r.scale(0.2, 5), every = r.uniform(0.5, 8) * kHour;
  auto chance = own(r);
  life->memory = [=, need = 0.0, next = 0.0](double t) mutable {
    while (t >= next) {
      need = chance->uniform(0, 1);
      next += chance->wait(every);
    }
    return b + a * need;
  };
}

void high_water(Random& r, Life* life) {
  // An allocator that gives nothing back: the largest request so far stays. Sizes have a long tail.
  const double b = base(r), a = b * r.scale(0.02, 0.2), every = r.scale(20, 1800);
  const double tail = r.uniform(2.5, 5);
  auto chance = own(r);
  life->memory = [=, most = 0.0, next = 0.0](double t) mutable {
    for (; next <= t; next += chance->wait(every)) {
      most = std::max(most, std::pow(chance->uniform(1e-9, 1), -1 / tail));
    }
    return b + a * most;
  };
}

void chat(Random& r, Life* life) {
  // Sessions of hours that begin as the day goes.
  const double b = r.scale(10, 100), a = r.scale(20, 2000), length = r.uniform(0.5, 6) * kHour;
  Level arrivals = daily_load(r, r.uniform(0.5, 1));
  const double m = base(r), each = m * r.scale(0.1, 1);
  life->files = [=, open = arrivals(0), last = 0.0](double t) mutable {
    open += (arrivals(t) - open) * (1 - std::exp((last - t) / length));
    last = t;
    return std::floor(b + a * open);
  };
  life->memory = [=, load = arrivals](double t) mutable { return m + each * load(t); };
}

void thread_per_request(Random& r, Life* life) {
  const double b = r.scale(4, 40), a = r.scale(2, 150), stays = r.scale(30, 900);
  Level load = daily_load(r, r.uniform(0.3, 1));
  auto chance = own(r);
  life->threads = [=, alive = 0.0, last = 0.0](double t) mutable {
    const double want = a * load(t);
    const double asked = std::max(0.0, want + std::sqrt(want) * chance->normal());
    alive = std::max(asked, alive * std::exp((last - t) / stays));
    last = t;
    return std::floor(b + alive);
  };
}

void at_work(Random& r, Life* life) {
  // A person opens and closes documents: some stay open overnight, most do not.
  const double b = base(r), each = b * r.scale(0.03, 0.3), shift = r.uniform(0, kDay);
  auto chance = own(r);
  const double every = r.uniform(300, 2400);
  life->memory = [=, open = 1.0, next = 0.0](double t) mutable {
    for (; next <= t; next += chance->wait(every)) {
      const double hour = std::fmod(next + shift, kDay) / kHour;
      if (hour > 8 && hour < 17) {
        const double up = 0.5 - 0.04 * (open - 8);
        open = std::max(0.0, open + (chance->chance(up) ? 1 : -1));
      } else if (hour >= 17 && hour < 18) {
        open = std::floor(open * 0.7);
      }
    }
    return b + each * open;
  };
}

void ratchet(Random& r, Life* life) {
  // Fragments: part of each new height stays.
  const double b = base(r), a = b * r.scale(0.1, 1), stays = r.uniform(0.2, 0.8);
  Level load = daily_load(r, r.uniform(0.3, 0.9));
  Level churn = wander(r, 0.1, r.scale(600, 2 * kHour));
  life->memory = [=, highest = 0.0](double t) mutable {
    const double now = std::max(0.0, load(t) + churn(t));
    highest = std::max(highest, now);
    return b + a * (stays * highest + (1 - stays) * now);
  };
}

void cleaned_by_timer(Random& r, Life* life) {
  // Expired sessions go at every run of a timer, not before.
  const double b = r.scale(10, 200), a = b * r.scale(0.1, 2), every = r.uniform(0.5, 8) * kHour;
  Level work = total(daily_load(r, r.uniform(0.2, 0.8)));
  life->files = [=, at_last = 0.0, run = 0.0](double t) mutable {
    const double now = work(t);
    if (std::floor(t / every) > run) {
      run = std::floor(t / every);
      at_last = now;
    }
    return std::floor(b + a * (now - at_last));
  };
}

void plugins(Random& r, Life* life) {
  // Started in parts on first use: the common ones at once, the others over the first day.
  std::vector<std::pair<double, double>> parts;
  const double b = base(r), spread = r.scale(0.2, 5) * kHour;
  for (int i = static_cast<int>(r.uniform(4, 25)); i > 0; --i) {
    parts.emplace_back(r.wait(spread), b * r.scale(0.01, 0.2));
  }
  const double threads = std::floor(r.scale(2, 30));
  life->memory = [=](double t) {
    double level = b;
    for (const auto& [when, by] : parts) level += t > when ? by : 0;
    return level;
  };
  life->threads = [=](double t) {
    double level = threads;
    for (const auto& [when, by] : parts) level += t > when ? 1 : 0;
    return level;
  };
}

void mostly_idle(Random& r, Life* life) {
  // Woken now and then: pages come back, and the kernel takes them again.
  const double b = base(r), a = b * r.scale(0.05, 1), tau = r.scale(600, 6 * kHour);
  auto chance = own(r);
  const double every = r.scale(1, 20) * kHour;
  life->memory = [=, hot = 1.0, last = 0.0, next = chance->wait(every)](double t) mutable {
    hot *= std::exp((last - t) / tau);
    last = t;
    for (; next <= t; next += chance->wait(every)) {
      hot = chance->uniform(0.3, 1);
    }
    return b + a * hot;
  };
}

// --- Leaking.

double pace(Random& r) {
  return r.scale(0.005, 0.12);
}

void reconnects(Random& r, Life* life) {
  // A listener is lost at each reconnect; they come singly, and at times many together.
  const double b = base(r), rate = b * pace(r), every = r.scale(60, 1800);
  auto chance = own(r);
  leak(life, 0);
  life->memory = [=, lost = 0.0, next = chance->wait(every)](double t) mutable {
    for (; next <= t; next += chance->wait(every)) {
      lost += rate * every / kHour * (chance->chance(0.05) ? chance->uniform(2, 16) : 0.55);
    }
    return b + lost;
  };
}

void by_a_timer(Random& r, Life* life) {
  // A job in the process needs memory while it runs and loses a little.
  const double b = base(r), rate = b * pace(r), every = r.uniform(0.1, 2) * kHour;
  const double needs = b * r.scale(0.02, 0.4), runs = every * r.uniform(0.02, 0.3);
  leak(life, 0);
  life->peaks = true;
  life->memory = [=](double t) {
    const double n = t / every;
    return b + rate * std::floor(n) * every / kHour + (std::fmod(t, every) < runs ? needs : 0);
  };
}

void threads_that_hang(Random& r, Life* life) {
  // Requests that hang keep their thread; the busier, the more.
  const double b = r.scale(4, 60), each = r.scale(60, 3600), a = r.scale(0.5, 8);
  Level load = daily_load(r, r.uniform(0.2, 0.8));
  auto chance = own(r);
  leak(life, 0, judge::Resource::kThreads);
  life->threads = [=, hang = 0.0, last = 0.0](double t) mutable {
    const double now = load(t);
    for (double left = (t - last) / each * 1.4 * now; left > 0; left -= 1) {
      hang += chance->chance(std::min(1.0, left));
    }
    last = t;
    return std::floor(b + a * now + hang);
  };
}

void rotated_logs(Random& r, Life* life) {
  // Old logs stay open at each rotation; with an archive at some.
  const double b = r.scale(8, 200), every = r.uniform(600, 3000), onset = r.uniform(0, 10) * kHour;
  const double more = std::floor(r.uniform(2, 6));
  leak(life, onset, judge::Resource::kOpenFiles);
  life->files = [=](double t) {
    const double n = std::floor(std::max(0.0, t - onset) / every);
    return std::floor(b) + 2 * n + std::floor(n / more);
  };
}

void new_keys(Random& r, Life* life) {
  // Every key is kept for ever, and new ones become a little rarer.
  const double b = base(r), rate = b * pace(r), power = r.uniform(0.78, 0.95);
  Level work = total(daily_load(r, r.uniform(0, 0.5)));
  leak(life, 0);
  life->memory = [=](double t) mutable { return b + rate * 24 * std::pow(work(t) / 14, power); };
}

void partly_freed(Random& r, Life* life) {
  // A trim every few hours gives most back, and less each time.
  const double b = base(r), rate = b * pace(r), every = r.uniform(1, 5) * kHour;
  const double freed = r.uniform(0.2, 0.7);
  leak(life, 0);
  life->memory = [=](double t) {
    const double whole = std::floor(t / every) * every;
    return b + rate / (1 - freed) * ((1 - freed) * whole + (t - whole)) / kHour;
  };
}

void history_of_changes(Random& r, Life* life) {
  // Each change keeps the whole of what was: growth that speeds up.
  const double b = base(r), rate = b * r.scale(0.005, 0.05), doubles = r.uniform(15, 60);
  leak(life, 0);
  life->memory = [=](double t) {
    return b + rate * doubles * (std::exp2(t / kHour / doubles) - 1);
  };
}

void heap_and_leak(Random& r, Life* life) {
  // A managed heap that gives nothing back to the system, and what the program still holds.
  const double b = base(r), rate = b * pace(r), young = b * r.scale(0.05, 0.4);
  const double step = b * r.scale(0.02, 0.15);
  leak(life, 0);
  Level churn = wander(r, 0.15, 1800);
  life->memory = [=, top = 0.0](double t) mutable {
    top = std::max(top, rate * t / kHour + young * (1 + churn(t)));
    return b + std::ceil(top / step) * step;
  };
}

void new_feature(Random& r, Life* life) {
  // From a day on a feature is used, and what it loses goes with the load.
  const double b = base(r), rate = b * pace(r), onset = r.uniform(8, 40) * kHour;
  const double a = b * r.scale(0.02, 0.3);
  Level load = daily_load(r, r.uniform(0.2, 0.7));
  leak(life, onset);
  life->memory = [=, lost = 0.0, last = 0.0](double t) mutable {
    const double now = load(t);
    lost += t > onset ? 1.5 * rate * now * (t - last) / kHour : 0;
    last = t;
    return b + a * now + lost;
  };
}

void half_closed(Random& r, Life* life) {
  // Sockets that the peer has closed and the process has not; beside a pool that breathes.
  const double b = r.scale(10, 300), each = r.scale(20, 1500), a = b * r.scale(0.05, 0.3);
  Level load = daily_load(r, r.uniform(0.3, 0.8));
  Level series = bursts(r, r.scale(300, 3600), r.scale(100, 1200));
  leak(life, 0, judge::Resource::kOpenFiles);
  life->files = [=, lost = 0.0, last = 0.0](double t) mutable {
    lost += (t - last) / each * (0.6 + 1.2 * series(t));
    last = t;
    return std::floor(b + a * load(t) + lost);
  };
}

void undo_buffer(Random& r, Life* life) {
  // Grows while a person works, about nine hours of each day, and stands still otherwise.
  const double b = base(r), rate = b * r.scale(0.01, 0.12), at = r.uniform(0, 9) * kHour;
  leak(life, 0);
  life->memory = [=](double t) {
    const double now = t + at;
    const double hours = std::floor(now / kDay) * 9 + std::min(9.0, std::fmod(now, kDay) / kHour);
    return b + rate * (hours - at / kHour);
  };
}

}  // namespace

const std::vector<Kind> kBlind = {
    {"mapped file", false, mapped_file},
    {"kept for a time", false, kept_for_a_time},
    {"full at a bound", false, capped},
    {"mail queue", false, mail_queue},
    {"growing heap", false, growing_heap},
    {"blocks of hours", false, blocks_of_hours},
    {"backup", false, backup},
    {"stages", false, stages},
    {"high water", false, high_water},
    {"chat", false, chat},
    {"thread per request", false, thread_per_request},
    {"at work", false, at_work},
    {"ratchet", false, ratchet},
    {"cleaned by a timer", false, cleaned_by_timer},
    {"plugins", false, plugins},
    {"mostly idle", false, mostly_idle},
    {"leak at reconnects", true, reconnects},
    {"leak by a timer", true, by_a_timer},
    {"threads that hang", true, threads_that_hang},
    {"rotated logs", true, rotated_logs},
    {"new keys", true, new_keys},
    {"partly freed", true, partly_freed},
    {"history of changes", true, history_of_changes},
    {"managed heap with a leak", true, heap_and_leak},
    {"leak of a new feature", true, new_feature},
    {"half-closed sockets", true, half_closed},
    {"undo buffer", true, undo_buffer},
};

}  // namespace leaks
