#include "host/watch/judging.h"

#include <algorithm>
#include <chrono>
#include <thread>
#include <utility>

#include "host/common/file_text.h"
#include "judge/saved_state.h"

namespace host {
namespace {

// The judge's shortest windows are a minute. Six samples find the minimum of one nearly as well as
// thirty, for a fifth of the cost.
constexpr std::chrono::milliseconds kInterval{9500};
// Seconds.
constexpr double kSaveInterval = 600;
constexpr double kStandingInterval = 60;
constexpr std::chrono::milliseconds kSavePatience{500};

double seconds_since_1970() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

// A time after boot on the wall clock as it stands now.
ToldVerdict::Time wall_clock(double after_boot) {
  using std::chrono::system_clock;
  const std::chrono::duration<double> ago(seconds_after_boot() - after_boot);
  return system_clock::now() - std::chrono::duration_cast<system_clock::duration>(ago);
}

std::string boot_id(const std::string& proc_root) {
  std::string id = read_file(proc_root + "/sys/kernel/random/boot_id").text;
  id.erase(id.find_last_not_of('\n') + 1);
  return id;
}

int64_t above(int64_t level, int64_t room) {
  return level < 0 || room < 0 ? judge::kUnknown : level + room;
}

// Holds the lock, or not if it was not let go of within `patience`.
std::unique_lock<std::mutex> lock_within(std::chrono::milliseconds patience, std::mutex* mutex) {
  const auto end = std::chrono::steady_clock::now() + patience;
  std::unique_lock lock(*mutex, std::try_to_lock);
  while (!lock.owns_lock() && std::chrono::steady_clock::now() < end) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
    lock.try_lock();
  }
  return lock;
}

bool is_before(const auto& watched, int32_t pid) {
  return watched.pid < pid;
}

}  // namespace

Judging::Judging(Options options)
    : options_(std::move(options)),
      copy_(kInterval),
      limits_(options_.places),
      judge_([this](const judge::Verdict& verdict) { tell(verdict); }),
      state_(options_.state, boot_id(options_.places.proc_root)),
      saved_(seconds_after_boot()),
      record_origin_(seconds_since_1970() - saved_) {}

void Judging::start() {
  state_.load(&judge_);
  if (!options_.carried.empty()) {
    judge::load(options_.carried, boot_id(options_.places.proc_root), &judge_);
  }
  // Those that ended meanwhile are told so. What was not told, the judge forgets by itself.
  judge_.for_each_told([this](const judge::Verdict& verdict) {
    watched_.push_back({verdict.pid, false, verdict.start, LimitReader::place_at(0)});
  });
  const auto is_less = [](const Watched& a, const Watched& b) { return a.pid < b.pid; };
  const auto is_same = [](const Watched& a, const Watched& b) { return a.pid == b.pid; };
  std::sort(watched_.begin(), watched_.end(), is_less);
  watched_.erase(std::unique(watched_.begin(), watched_.end(), is_same), watched_.end());
  if (options_.standing && !watched_.empty()) {
    options_.standing(standing());
  }
  std::thread([this] { run(); }).detach();
  taskwarden_observe_table(
      [](void* self, const taskwarden_table* table) {
        static_cast<Judging*>(self)->copy_.offer(table);
      },
      this, TASKWARDEN_EVERY_PASS);
}

std::string Judging::bytes() {
  const std::unique_lock lock = lock_within(kSavePatience, &mutex_);
  return lock.owns_lock() ? judge::save(judge_, boot_id(options_.places.proc_root)) : "";
}

void Judging::save() {
  const std::unique_lock lock = lock_within(kSavePatience, &mutex_);
  if (lock.owns_lock()) {
    state_.save(judge_);
  }
}

void Judging::run() {
  for (;;) {
    const SampledPass& pass = copy_.wait();
    const Pass figures{pass.pass, pass.processes, pass.duration_ms, pass.slices, pass.rows.size()};
    const double now = pass.time;
    {
      const std::lock_guard lock(mutex_);
      take(pass);
      if (now - saved_ >= kSaveInterval) {
        saved_ = now;
        state_.save(judge_);
      }
    }
    copy_.release();
    if (options_.standing && now - shown_ >= kStandingInterval) {
      shown_ = now;
      options_.standing(standing());
    }
    if (options_.after_pass) {
      options_.after_pass(figures);
    }
  }
}

void Judging::take(const SampledPass& pass) {
  limits_.begin_pass(pass.time);
  for (const SampledProcess& row : pass.rows) {
    Watched& watched = find(row, pass.time);
    if (row.name_length != 0) {
      judge(pass, row, &watched);
    }
  }
  // What had no room in the copy has not ended.
  if (pass.whole) {
    end_others(pass.time);
  }
  if (!fresh_.empty()) {
    const auto by_pid = [](const Watched& a, const Watched& b) { return a.pid < b.pid; };
    std::sort(fresh_.begin(), fresh_.end(), by_pid);
    const auto middle = static_cast<std::ptrdiff_t>(watched_.size());
    watched_.insert(watched_.end(), fresh_.begin(), fresh_.end());
    std::inplace_merge(watched_.begin(), watched_.begin() + middle, watched_.end(), by_pid);
    fresh_.clear();
  }
  for (Watched& watched : watched_) {
    watched.seen = false;
  }
  if (options_.record != nullptr) {
    options_.record->flush();
  }
}

// Also makes it one of those that are watched; valid until the next call. A pid comes once a pass.
Judging::Watched& Judging::find(const SampledProcess& row, double now) {
  const auto place =
      std::lower_bound(watched_.begin(), watched_.end(), row.pid, is_before<Watched>);
  if (place == watched_.end() || place->pid != row.pid) {
    return fresh_.emplace_back(Watched{row.pid, true, row.start, LimitReader::place_at(now)});
  }
  if (row.start >= 0 && place->start >= 0 && row.start != place->start) {
    place->place = LimitReader::place_at(now);
  }
  place->start = row.start >= 0 ? row.start : place->start;
  place->seen = true;
  return *place;
}

void Judging::judge(const SampledPass& pass, const SampledProcess& row, Watched* watched) {
  const Limits limits = limits_.look(row.pid, pass.time, &watched->place);
  judge::Sample sample;
  sample.time = pass.time;
  sample.pid = row.pid;
  sample.start = row.start;
  sample.name = pass.name(row);
  sample.resident_kb = row.resident_kb;
  sample.threads = row.threads;
  sample.open_files = row.open_files;
  sample.open_files_limit = limits.open_files;
  sample.threads_limit = above(row.threads, limits.threads_room);
  sample.memory_limit_kb = above(row.resident_kb, limits.memory_room_kb);
  sample.memory_available_kb = limits_.memory_available_kb();
  judge_.take(sample);
  if (options_.record != nullptr) {
    sample.time += record_origin_;
    options_.record->add(sample);
  }
}

// Those that are not in the table any more.
void Judging::end_others(double now) {
  std::erase_if(watched_, [&](const Watched& watched) {
    if (!watched.seen) {
      judge_.end(watched.pid, now);
    }
    return !watched.seen;
  });
}

ToldVerdict Judging::told(const judge::Verdict& verdict) const {
  ToldVerdict told{
      .time = wall_clock(verdict.time),
      .pid = verdict.pid,
      .start = verdict.start,
      .name = std::string(verdict.name),
      .resource = verdict.resource,
      .state = verdict.state,
      .from = verdict.from,
      .now = verdict.now,
      .since = wall_clock(verdict.since),
      .rate_per_hour = verdict.rate_per_hour,
      .limit = verdict.limit,
      .seconds_to_limit = verdict.seconds_to_limit,
      .evidence = judge::evidence_clause(verdict.evidence),
  };
  const auto place =
      std::lower_bound(watched_.begin(), watched_.end(), verdict.pid, is_before<Watched>);
  if (place != watched_.end() && place->pid == verdict.pid) {
    told.unit = limits_.unit(place->place);
  }
  return told;
}

void Judging::tell(const judge::Verdict& verdict) {
  ToldVerdict change = told(verdict);
  if (options_.explain && change.state != judge::State::kEnded) {
    options_.explain(&change);
  }
  if (options_.tell) {
    options_.tell(change);
  }
}

std::vector<ToldVerdict> Judging::standing() const {
  std::vector<ToldVerdict> all;
  judge_.for_each_told([&](const judge::Verdict& verdict) { all.push_back(told(verdict)); });
  return all;
}

}  // namespace host
