// The judge: lives of processes in, verdicts out; and `taskwarden judge`, which reads them.
#include "judge/judge.h"

#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cmath>
#include <cstdio>
#include <functional>
#include <nlohmann/json.hpp>
#include <set>

#include "host/judge/sample_reader.h"
#include "host/judge/verdict_json.h"
#include "judge/saved_state.h"
#include "judge/sealed.h"
#include "support/row_file.h"

namespace {

using judge::Resource;
using judge::State;
using Kind = judge::Evidence::Kind;
constexpr double kHour = 3600, kDay = 24 * kHour;

struct Told : judge::Verdict {
  std::string called;
  std::string json() const {
    judge::Verdict named = *this;
    named.name = called;
    return host::verdict_json(named);
  }
};

struct Court {
  std::vector<Told> told{};
  judge::Judge judge{[this](const judge::Verdict& v) { told.push_back({v, std::string(v.name)}); }};
  judge::Sample sample{.pid = 7, .start = 1, .name = "x"};

  // Samples `level` at these times, in place of whichever number `resource` is.
  template <typename Level>
  void watch(Resource resource, double from, double to, double interval, Level level) {
    int64_t* const numbers[] = {&sample.resident_kb, &sample.threads, &sample.open_files};
    for (sample.time = from; sample.time < to; sample.time += interval) {
      *numbers[static_cast<size_t>(resource)] = static_cast<int64_t>(level(sample.time));
      judge.take(sample);
    }
  }
  // When it first was in this state or a worse one; infinity if never.
  double when(State state) const {
    for (const auto& v : told) {
      if (v.state >= state && v.state != State::kEnded) return v.time;
    }
    return HUGE_VAL;
  }
};

double wave(double t) {
  return (1 - std::cos(2 * M_PI * t / kDay)) / 2;
}

double swing(double t) {
  return std::sin(2 * M_PI * t / kDay);
}

TEST(Judge, FindsLeaksInTime) {
  constexpr auto kFiles = Resource::kOpenFiles, kThreads = Resource::kThreads;
  constexpr auto kMemory = Resource::kMemory;
  const struct {
    const char* name;
    Resource resource;
    double suspected, confirmed;  // hours
    double (*level)(double);
  } rows[] = {
      {"a file every 10 s, 5 open", kFiles, .25, 20, [](double t) { return 5 + t / 10; }},
      {"a file every 10 s, 65 open", kFiles, .25, 20, [](double t) { return 65 + t / 10; }},
      {"a thread every 10 s", kThreads, .25, 20, [](double t) { return 2 + t / 10; }},
      {"200 kB/s", kMemory, .25, 20, [](double t) { return 9000 + 200 * t; }},
      {"1 MB a minute in 1.3 MB", kMemory, .25, 20, [](double t) { return 1300 + t * 17; }},
      {"1 MB a minute in 200 MB", kMemory, .42, 20, [](double t) { return 2e5 + t * 17; }},
      {"0.5 % an hour", kMemory, 20, 24, [](double t) { return 1e5 * (1 + t / kHour / 200); }},
      {"a file in 30 minutes", kFiles, 20, 24, [](double t) { return 60 + t / 1800; }},
      {"a thread in 90 minutes", kThreads, 20, 24, [](double t) { return 8 + t / 5400; }},
      {"2-hour steps", kMemory, 22, 24, [](double t) { return 1e5 + 4e3 * std::floor(t / 7200); }},
      {"late", kMemory, 44, 46, [](double t) { return 1e5 + std::max(0., t - 30 * kHour) / 3; }},
      {"daily", kMemory, 72, 72, [](double t) { return 1e5 * (1 + wave(t) / 2 + t / kDay / 5); }},
      {"by load", kMemory, 72, 72, [](double t) { return 1e5 + t / 9 - 1e3 * swing(t); }},
      {"teeth", kMemory, 72, 72, [](double t) { return 1e5 + std::fmod(t, 6000) * 8 + t / 4; }},
  };
  for (const auto& row : rows) {
    for (const double interval : {2.0, 30.0, 600.0}) {
      Court court;
      court.watch(row.resource, 0.5, 80 * kHour, interval, row.level);
      const double coarse = interval > 60 ? 3 * kHour : 0;
      EXPECT_LE(court.when(State::kSuspected), row.suspected * kHour + coarse)
          << row.name << interval;
      EXPECT_LE(court.when(State::kConfirmed), row.confirmed * kHour) << row.name << interval;
      for (const auto& v : court.told) EXPECT_EQ(v.resource, row.resource);
    }
  }
}

TEST(Judge, LeavesTheHealthyAlone) {
  const struct {
    const char* name;
    double (*level)(double);
  } rows[] = {
      {"daily load", [](double t) { return 1e5 * (1 + wave(t - 7000)); }},
      {"daily load, kept", [](double t) { return 1e5 * (1 + wave(std::min(t, kDay / 2))); }},
      {"unlike days", [](double t) { return 1e5 * (1 + wave(t) * (1 + t / kDay / 5)); }},
      {"warm-up", [](double t) { return 1e5 * (5 - 4 * std::exp(-t / 2e4)); }},
      {"logarithm", [](double t) { return 1e5 * (1 + std::log1p(t / 600) / 3); }},
      {"logarithm, slower", [](double t) { return 1e5 * (1 + std::log1p(t / 6000)); }},
      {"cache", [](double t) { return 1e5 * (1 + std::min(t, 10 * kHour) / 3e3); }},
      {"steps", [](double t) { return 1e5 * (1 + std::floor(t / 1e5) / 3); }},
      {"4 steps", [](double t) { return 1e5 + 2e4 * std::floor(std::min(t, 41 * kHour) / 36e3); }},
      {"sawtooth", [](double t) { return 1e5 + std::fmod(t, 11000) * 30; }},
      {"bursts", [](double t) { return std::fmod(t, 5e4) < 4000 ? 9e5 : 1e5; }},
      {"nightly job", [](double t) { return std::fmod(t, kDay) > 8e4 ? 9e5 : 1e5; }},
      {"a batch of 15 hours", [](double t) { return t < 15.3 * kHour ? 1e5 + 3 * t : 1e5; }},
      {"fills by day, then by night",
       [](double t) {
         return 1e5 + 3 * std::min(t, 10 * kHour) + std::clamp(t - 10 * kHour, 0., 20 * kHour);
       }},
      {"filled by work",
       [](double t) {
         const double work = 0.6 * t - 0.4 * kDay / 2 / M_PI * swing(t);
         return 1e5 * (3 - 2 * std::exp(-work / 5 / kHour));
       }},
  };
  for (const auto& row : rows) {
    for (const double interval : {10.0, 600.0}) {
      Court court;
      court.sample.memory_limit_kb = 5'000'000;
      court.watch(Resource::kMemory, 1, 96 * kHour, interval, row.level);
      EXPECT_EQ(court.when(State::kConfirmed), HUGE_VAL) << row.name << interval;
    }
  }
}

// 25 minutes of a busy machine, each process sampled every 2 seconds.
TEST(Judge, LeavesHonestWorkAlone) {
  using Level = std::function<double(double)>;
  const auto settles = [](double t, double tau) { return 1 - std::exp(-t / tau); };
  const struct {
    const char* name;
    int count;
    double every, lasts;  // s
    Level memory, threads = {}, files = {};
  } rows[] = {
      {"compiler", 120, 12, 25, [](double t) { return 2e4 + 1.2e4 * t; }},
      {"linker", 5, 280, 240, [](double t) { return 1e4 + 4e3 * t; }},
      {"git", 4, 360, 300, [](double t) { return 3e4 + 1.5e3 * std::fmod(t, 150); }},
      {"web server", 8, 1, 1500, [&](double t) { return 5e4 + 2e4 * settles(t, 90); },
       [](double) { return 4; }, [](double t) { return 20 + std::fmod(t * 7, 13); }},
      {"redis", 1, 0, 1500, [](double t) { return 9e3 + 9e2 * std::min(t, 110.0); }},
      {"redis saves", 5, 300, 20, [](double t) { return 1e5 + 5 * t; }},
      {"PostgreSQL", 6, 20, 1400, [&](double t) { return 8e3 + 9e4 * settles(t, 240); }},
      {"JVM", 2, 60, 1400,
       [&](double t) { return 1.2e5 + 1.5e5 * settles(t, 120) + 1.8e3 * std::fmod(t, 45); },
       [](double t) { return 18 + std::min(14.0, t / 5); }},
  };
  Court court;
  court.sample.open_files_limit = 1024;
  court.sample.memory_available_kb = 4'000'000;
  for (double now = 0; now < 1500; now += 2) {
    court.sample.time = now;
    court.sample.pid = 300;
    for (const auto& row : rows) {
      for (int i = 0; i < row.count; ++i) {
        const double t = now - i * row.every;
        const auto at = [t](const Level& level, double other) {
          return static_cast<int64_t>(level ? level(t) : other);
        };
        ++court.sample.pid;
        court.sample.resident_kb = at(row.memory, 0);
        court.sample.threads = at(row.threads, 4);
        court.sample.open_files = at(row.files, 30);
        if (t >= 0 && t < row.lasts) court.judge.take(court.sample);
        if (t >= row.lasts) court.judge.end(court.sample.pid, now);
      }
    }
  }
  FILE* const csv = fopen(TASKWARDEN_SAMPLES, "re");
  ASSERT_NE(csv, nullptr);
  host::SampleReader reader([&](char* buffer, size_t size) { return fread(buffer, 1, size, csv); });
  ASSERT_TRUE(reader.begin());
  for (judge::Sample sample; reader.next(&sample);) {
    sample.time += 3000;
    sample.pid += 1'000'000;
    court.judge.take(sample);
  }
  fclose(csv);
  EXPECT_EQ(court.when(State::kConfirmed), HUGE_VAL);
  std::set<std::string> leaking;
  int honest = 0;
  for (const auto& v : court.told) {
    const bool leaks = v.called.ends_with("-leaking");
    if (leaks) leaking.insert(v.called);
    honest += !leaks && v.state == State::kSuspected;
  }
  EXPECT_LE(honest, 3);
  EXPECT_EQ(leaking.size(), 5u);
}

TEST(Judge, UrgentHalfAnHourBeforeTheLimit) {
  for (const double hours : {2.0, 3.0, 5.0, 11.0, 30.0, 70.0}) {
    for (const double interval : {1.0, 60.0, 300.0, 600.0}) {
      for (const bool available : {false, true}) {
        Court court;
        const double rate = 1e6 / (hours * kHour);
        court.watch(Resource::kMemory, 0, hours * kHour, interval, [&](double t) {
          court.sample.memory_limit_kb = available ? judge::kUnknown : 1'200'000;
          court.sample.memory_available_kb =
              available ? static_cast<int64_t>(1e6 - t * rate) : judge::kUnknown;
          return 2e5 + t * rate;
        });
        const double left = hours * kHour - court.when(State::kUrgent);
        EXPECT_GE(left, 1800) << hours << " h, every " << interval;
        EXPECT_LE(left, 3700 + interval) << hours << " h, every " << interval;
      }
    }
  }
}

// A limit is reached by what comes on top of the floor.
TEST(Judge, UrgentBeforePeaksAndStepsReachTheLimit) {
  const struct {
    const char* name;
    double (*level)(double);
  } rows[] = {
      {"teeth of minutes", [](double t) { return 1e5 + std::fmod(t, 1000) * 200 + t; }},
      {"teeth of hours", [](double t) { return 1e5 + std::fmod(t, 3 * kHour) * 20 + t; }},
      {"steps", [](double t) { return 1e5 + 12e3 * std::floor(t / 9000); }},
  };
  for (const auto& row : rows) {
    Court court;
    court.sample.memory_limit_kb = 500'000;
    double reached = HUGE_VAL;
    court.watch(Resource::kMemory, 0, 96 * kHour, 60, [&](double t) {
      reached = row.level(t) >= 500'000 ? std::min(reached, t) : reached;
      return row.level(t);
    });
    EXPECT_GE(reached - court.when(State::kUrgent), 1800) << row.name;
    EXPECT_LE(reached - court.when(State::kUrgent), 16 * kHour) << row.name;
  }
}

// A fast one is urgent as soon as it has grown for a quarter of an hour.
TEST(Judge, UrgentBeforeAFastLeakIsOver) {
  Court court;
  court.sample.open_files_limit = 1024;
  court.watch(Resource::kOpenFiles, 0, 1024, 2, [](double t) { return t; });
  EXPECT_LE(court.when(State::kUrgent), 900);
}

TEST(Judge, VerdictsSayHowMuchSinceWhenAndWhy) {
  Court court;
  court.sample.open_files_limit = 5000;
  court.watch(Resource::kOpenFiles, 1000, 1000 + 60 * kHour, 60,
              [](double t) { return t < 20000 ? 100 : 100 + (t - 20000) / 60; });
  ASSERT_EQ(court.told.size(), 2u);
  const auto& v = court.told[1];
  EXPECT_EQ(std::tuple(v.state, v.pid, v.start, v.called),
            std::tuple(State::kConfirmed, 7, 1, "x"));
  EXPECT_NEAR(v.since, 20000, 1800);
  EXPECT_NEAR(v.from, 100, 5);
  EXPECT_NEAR(v.now, 100 + (v.time - 20000) / 60, 1);
  EXPECT_NEAR(*v.rate_per_hour, 60, 1);
  EXPECT_EQ(v.limit, 5000);
  EXPECT_NEAR(*v.seconds_to_limit, (5000 - v.now) * 60, 6000);
  EXPECT_EQ(judge::evidence_clause(v.evidence), "its floor rose all through 15 hours");
  int open = 0;
  court.judge.for_each_told([&](const judge::Verdict& now) {
    ++open;
    EXPECT_EQ(std::tuple(now.state, now.pid, now.name, now.limit, now.since, now.from),
              std::tuple(v.state, 7, "x", v.limit, v.since, v.from));
    EXPECT_EQ(std::tuple(now.now, now.time), std::tuple(3382, 1000 + 60 * kHour - 60));
    EXPECT_NEAR(*now.rate_per_hour, 60, 1);
    EXPECT_NEAR(*now.seconds_to_limit, (5000 - 3382) * 60, 1000);
    EXPECT_EQ(judge::evidence_clause(now.evidence), judge::evidence_clause(v.evidence));
  });
  EXPECT_EQ(std::pair(open, court.judge.watched()), std::pair(1, 60 * kHour - 60));
}

TEST(Judge, EndsWhatIsOver) {
  const struct {
    const char* name;
    double (*level)(double);
    Kind kind;
    double after, before;  // hours
  } rows[] = {
      {"fell back", [](double t) { return t < 30 * kHour ? 1e5 + t : 1e5; }, Kind::kFellBack, 35,
       38},
      {"stopped", [](double t) { return 1e5 + std::min(t, 30 * kHour); }, Kind::kStopped, 54, 60},
  };
  for (const auto& row : rows) {
    Court court;
    court.watch(Resource::kMemory, 0, 90 * kHour, 60, row.level);
    ASSERT_EQ(court.told.size(), 3u) << row.name;
    const auto& v = court.told[2];
    EXPECT_EQ(std::pair(v.state, v.evidence.kind), std::pair(State::kEnded, row.kind)) << row.name;
    EXPECT_GE(v.time, row.after * kHour) << row.name;
    EXPECT_LE(v.time, row.before * kHour) << row.name;
  }
}

// What happens to a process after 20 minutes of leaking, when it has been suspected.
TEST(Judge, KnowsWhoIsWho) {
  const auto leak = [](double t) { return 1e5 + 20 * t; };
  const struct {
    const char* name;
    void (*change)(Court&);
    int told;  // within 9 minutes
    int ended;
  } rows[] = {
      {"goes on", [](Court&) {}, 1, 0},
      {"new title", [](Court& c) { c.sample.name = "y"; }, 1, 0},
      {"start unknown for once", [](Court& c) { c.sample.start = judge::kUnknown; }, 1, 0},
      {"pid used again", [](Court& c) { c.sample.start = 2; }, 2, 1},
      {"exec", [](Court& c) { c.sample.name = "y", c.sample.swap_kb = 90000; }, 2, 1},
      {"ends", [](Court& c) { c.judge.end(7, 1201); }, 2, 1},
      {"ends twice", [](Court& c) { c.judge.end(7, 1201), c.judge.end(7, 1202); }, 2, 1},
      {"lost",
       [](Court& c) {
         c.sample.pid = 8;
         c.watch(Resource::kThreads, 1202, 4000, 2, [](double) { return 3; });
       },
       2, 1},
      {"not lost in a gap",
       [](Court& c) {
         c.sample.pid = 8;
         c.watch(Resource::kThreads, 9000, 9600, 2, [](double) { return 3; });
         c.sample.pid = 7;
       },
       1, 0},
  };
  for (const auto& row : rows) {
    Court court;
    court.watch(Resource::kMemory, 0, 1200, 2, leak);
    ASSERT_EQ(court.told.size(), 1u) << row.name;
    row.change(court);
    court.watch(Resource::kMemory, court.sample.time + 2, court.sample.time + 540, 2, leak);
    int ended = 0;
    for (const auto& v : court.told) ended += v.state == State::kEnded && v.called == "x";
    EXPECT_EQ(std::pair(static_cast<int>(court.told.size()), ended), std::pair(row.told, row.ended))
        << row.name;
  }
}

TEST(Judge, GapsAreMissingTime) {
  Court court;
  court.watch(Resource::kMemory, 0, 3000, 2, [](double) { return 1e5; });
  court.watch(Resource::kMemory, 50000, 53000, 2, [](double) { return 4e5; });
  court.watch(Resource::kMemory, 20000, 20010, 2, [](double) { return 1; });  // time goes back
  court.watch(Resource::kMemory, 2e5, 2e5 + 30 * kHour, 600, [](double) { return 5e5; });
  EXPECT_EQ(court.told.size(), 0u);
}

TEST(Judge, AlertsOnceADay) {
  Court court;  // grows by day and falls back by night, higher each day
  court.watch(Resource::kMemory, 0, 20 * kDay, 60, [](double t) {
    return 1e5 * (1 + t / kDay) + std::max(0., std::fmod(t, kDay) - 8 * kHour) * 4;
  });
  double last = -HUGE_VAL;
  for (const auto& v : court.told) {
    if (v.state != State::kConfirmed) continue;
    EXPECT_GE(v.time - last, kDay);
    last = v.time;
  }
  EXPECT_GT(last, 0);
}

// A life with every state, of two processes; between two samples the judge may be another one.
TEST(SavedState, GoesOnAsIfNothingHadHappened) {
  const auto live = [](Court* court, double from, double to) {
    for (double t = from; t < to; t += 300) {
      for (const int32_t pid : {7, 300}) {
        court->sample.pid = pid;
        court->sample.memory_limit_kb = 400'000;
        court->sample.name = pid == 7 ? "x" : std::string_view("y\0\xff", 3);
        court->watch(Resource::kMemory, t, t + 1, 300, [&](double now) {
          return now > 75 * kHour ? 1e5 : 1e5 + now * (pid == 7 ? 1 : 0.2);
        });
      }
    }
  };
  Court whole;
  live(&whole, 0, 110 * kHour);
  ASSERT_EQ(std::size(whole.told), 6u);
  std::string first;
  for (const double hours : {0.5, 3.0, 20.0, 60.0, 74.5, 77.0, 80.0}) {
    Court before;
    live(&before, 0, hours * kHour);
    const std::string saved = save(before.judge, "boot");
    Court after;
    after.told = before.told;
    ASSERT_EQ(load(saved, "boot", &after.judge), nullptr);
    EXPECT_EQ(save(after.judge, "boot"), saved);
    live(&after, hours * kHour, 110 * kHour);
    ASSERT_EQ(after.told.size(), whole.told.size()) << hours;
    for (size_t i = 0; i < whole.told.size(); ++i) {
      EXPECT_EQ(after.told[i].json(), whole.told[i].json()) << hours;
    }
    EXPECT_EQ(save(after.judge, ""), save(whole.judge, "")) << hours;
  }
}

TEST(SavedState, LoadsNothingThatIsDamaged) {
  Court court;
  court.watch(Resource::kMemory, 0, 1000, 10, [](double t) { return 1e5 + 20 * t; });
  const std::string saved = save(court.judge, "b");
  const std::string_view content = std::string_view(saved).substr(28);
  std::vector<std::pair<std::string, std::string>> rows = {
      {"", "it is something else"},
      {"something", "it is something else"},
      {saved + "x", "there is more behind it"},
      {save(court.judge, "c"), "it is of another boot"},
      {judge::seal(judge::kStateVersion + 1, content), "it is of another version"},
      {judge::seal(judge::kStateVersion, std::string(content) + '0'), "it is damaged"},
  };
  for (size_t n = 1; n < saved.size(); ++n) {
    rows.emplace_back(saved.substr(0, n), n < 8 ? "it is something else" : "it is cut off");
    if (n > 28) {
      const auto sealed = judge::seal(judge::kStateVersion, content.substr(0, n - 28));
      rows.emplace_back(sealed, n < 33 ? "it is of another boot" : "it is damaged");
    }
  }
  for (size_t n = 0; n < saved.size(); ++n) {
    rows.emplace_back(saved, "");  // any reason
    rows.back().first[n] ^= 0x10;
  }
  for (const auto& [bytes, why] : rows) {
    const char* const problem = load(bytes, "b", &court.judge);
    ASSERT_NE(problem, nullptr) << bytes.size();
    EXPECT_TRUE(why.empty() || why == problem) << bytes.size() << ": " << problem;
  }
  EXPECT_EQ(save(court.judge, "b"), saved);
}

TEST(Floors, CodesKeepCountsApart) {
  for (uint32_t n = 1; n < 2900; ++n) {
    EXPECT_GT(judge::encode(n), judge::encode(n - 1));
    EXPECT_EQ(std::lround(judge::decode(judge::encode(n))), n);
  }
  for (const double level : {1e5, 3e7, 4.2e9}) {
    EXPECT_NEAR(judge::decode(judge::encode(static_cast<uint32_t>(level))) / level, 1, 4e-4);
  }
}

// --- What is read.

// Reads `text` in pieces of `piece` bytes: rows as "name time pid resident", or "line: problem",
// with
// "; " between them.
std::string rows_of(const std::string& text, size_t piece) {
  size_t at = 0;
  host::SampleReader reader([&](char* buffer, size_t size) {
    const size_t got = text.copy(buffer, std::min(size, piece), at);
    at += got;
    return got;
  });
  if (!reader.begin()) return "0: " + reader.problem();
  std::ostringstream rows;
  for (judge::Sample s; reader.next(&s);) {
    rows << (rows.tellp() > 0 ? "; " : "");
    if (reader.problem().empty()) {
      rows << s.name << ' ' << s.time << ' ' << s.pid << ' ' << s.resident_kb;
    } else {
      rows << reader.line() << ": " << reader.problem();
    }
  }
  return rows.str();
}

// The rows of sample_rows.txt.
TEST(SampleReader, TakesWhatItsTableHas) {
  const std::string header = "time,pid,start,name,resident_kb,threads,open_files\n";
  const auto rows = row_file(TASKWARDEN_ROWS);
  EXPECT_EQ(rows.size(), 18U);
  for (const auto& row : rows) {
    const std::string text = row[0].starts_with("H ") ? header + row[0].substr(2) : row[0];
    for (const size_t piece : {1U, 7U, 100000U}) EXPECT_EQ(rows_of(text, piece), row[1]) << text;
  }
}

TEST(JudgeCommand, PrintsObjectsAndNamesBadRows) {
  const std::string file = testing::TempDir() + "/samples.csv";
  FILE* const csv = fopen(file.c_str(), "we");
  fputs("pid,time,start,name,resident_kb,threads,open_files,open_files_limit\nbad\n", csv);
  for (int t = 0; t < 1000; t += 2) fprintf(csv, "9,%d.5,4,\"b\xff\"\"d\",,1,%d,1024\n", t, t / 4);
  fclose(csv);
  const auto run = [](const std::string& arguments) {
    FILE* const pipe = popen((TASKWARDEN_PROGRAM " judge " + arguments).c_str(), "re");
    std::string output;
    for (int c; (c = getc(pipe)) != EOF;) output += static_cast<char>(c);
    return std::pair(WEXITSTATUS(pclose(pipe)), output);
  };
  const auto [status, output] = run(file + " 2>/dev/null");
  EXPECT_EQ(status, 0);
  auto object = nlohmann::json::parse(output, nullptr, false);
  ASSERT_TRUE(object.is_object()) << output;
  EXPECT_NEAR(object["rate_per_hour"], 900, 1);
  EXPECT_NEAR(object["seconds_to_limit"], 4 * (1024 - 195), 10);
  object.update({{"rate_per_hour", 0}, {"seconds_to_limit", 0}});
  EXPECT_EQ(object, nlohmann::json::parse(R"({
      "time": 780.5, "pid": 9, "start": 4, "name": "b\ufffd\"d", "resource": "open_files",
      "state": "suspected", "from": 0, "now": 195, "since": 0.5, "rate_per_hour": 0,
      "limit": 1024, "seconds_to_limit": 0, "evidence": "its floor rose all through 13 minutes"})"));
  EXPECT_EQ(run("- 2>&1 >/dev/null <" + file).second,
            "taskwarden: line 2: it has 1 cells, not 8\n"
            "taskwarden: 1 of 501 rows were bad and left out\n");
  EXPECT_EQ(run(file + "x 2>&1").first, 1);
  EXPECT_EQ(run("/ 2>&1"), std::pair(1, std::string("taskwarden: /: Is a directory\n")));
}

}  // namespace
