#include "host/watch/sparing.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

bool are_one(const SparedProcess& a, const SparedProcess& b) {
  return a.pid == b.pid && a.start_time == b.start_time;
}

void spare_user(uint32_t uid, int64_t now_ms, Sparing* sparing) {
  std::erase_if(sparing->users, [uid](const SparedUser& user) { return user.uid == uid; });
  if (uid != TASKWARDEN_EVERYBODY && sparing->users.size() >= kMostSparedUsers) {
    spare_user(TASKWARDEN_EVERYBODY, now_ms, sparing);
  } else {
    sparing->users.push_back({uid, now_ms + kHourMs});
  }
}

bool has_its_share(uint32_t uid, int64_t ms, int64_t most_ms, int64_t now_ms, Sparing* sparing) {
  auto& shares = sparing->shares;
  const auto known = std::find_if(shares.begin(), shares.end(),
                                  [uid](const Share& share) { return share.uid == uid; });
  Share& share = known != shares.end() ? *known : shares.emplace_back(Share{uid, now_ms, 0});
  share.spent_ms += ms;
  return share.spent_ms >= most_ms;
}

}  // namespace

void note_hold(SparedProcess process, int64_t now_ms, Sparing* sparing) {
  std::erase_if(sparing->holds, [=](const Hold& hold) { return hold.at_ms + kHourMs <= now_ms; });
  sparing->holds.push_back({process.uid, now_ms});
  const auto of_user =
      std::count_if(sparing->holds.begin(), sparing->holds.end(),
                    [&process](const Hold& hold) { return hold.uid == process.uid; });
  const bool is_known = process.start_time != 0;
  const bool has_room = sparing->processes.size() < kMostSparedProcesses;
  if (is_known && has_room) {
    process.next_try_ms = now_ms + sparing->first_try_ms;
    process.delay_ms = 2 * sparing->first_try_ms;
    forget(process, sparing);
    sparing->processes.push_back(process);
  }
  if (static_cast<size_t>(of_user) >= kHoldsOfUser || (is_known && !has_room)) {
    spare_user(process.uid, now_ms, sparing);
  }
  if (sparing->holds.size() >= kHoldsOfAll || !is_known) {
    spare_user(TASKWARDEN_EVERYBODY, now_ms, sparing);
  }
}

bool note_share(uint32_t uid, int64_t ms, int64_t now_ms, Sparing* sparing) {
  std::erase_if(sparing->shares,
                [=](const Share& share) { return share.since_ms + kShareWindowMs <= now_ms; });
  const std::pair<uint32_t, int64_t> limits[] = {{uid, kShareOfUserMs},
                                                 {TASKWARDEN_EVERYBODY, kShareOfAllMs}};
  bool spares = false;
  for (const auto& [whose, most_ms] : limits) {
    if (has_its_share(whose, ms, most_ms, now_ms, sparing)) {
      spare_user(whose, now_ms, sparing);
      std::erase_if(sparing->shares,
                    [user = whose](const Share& share) { return share.uid == user; });
      spares = true;
    }
  }
  return spares;
}

std::optional<SparedProcess> take_due(int64_t now_ms, Sparing* sparing) {
  for (SparedProcess& process : sparing->processes) {
    if (process.next_try_ms <= now_ms) {
      process.next_try_ms = now_ms + process.delay_ms;
      process.delay_ms = std::min(2 * process.delay_ms, kLongestDelayMs);
      return process;
    }
  }
  return std::nullopt;
}

void forget(const SparedProcess& process, Sparing* sparing) {
  std::erase_if(sparing->processes,
                [&process](const SparedProcess& other) { return are_one(process, other); });
}

std::vector<SparedUser> take_released(int64_t now_ms, Sparing* sparing) {
  std::vector<SparedUser> released;
  std::erase_if(sparing->users, [&](const SparedUser& user) {
    const bool is_over = user.until_ms <= now_ms;
    if (is_over) {
      released.push_back(user);
    }
    return is_over;
  });
  return released;
}

}  // namespace host
