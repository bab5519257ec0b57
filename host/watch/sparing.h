// Whose memory the watch leaves alone, and until when: processes that have held it up, and users
// whose processes do so again and again. Decisions only; the library is told by the supervisor.
// Times are in ms of CLOCK_MONOTONIC, which goes on when the program begins anew.
#ifndef HOST_WATCH_SPARING_H_
#define HOST_WATCH_SPARING_H_

#include <cstddef>
#include <cstdint>
#include <optional>
#include <vector>

#include "taskwarden/taskwarden.h"

namespace host {

// Each hold costs all baselines. So so many within an hour have the memory of all processes of the
// user left alone for an hour, or of everybody's: one account can have many user ids (subuid(5)).
inline constexpr size_t kHoldsOfUser = 2;
inline constexpr size_t kHoldsOfAll = 5;
inline constexpr int64_t kHourMs = 3'600'000;
// Many short waits stop the watch as well as a long one. Reading the memory of one user's
// processes, or of everybody's, may take so much of ten minutes; ordinary reads take some
// hundredths of that.
inline constexpr int64_t kShareWindowMs = 600'000;
inline constexpr int64_t kShareOfUserMs = kShareWindowMs / 10;
inline constexpr int64_t kShareOfAllMs = kShareWindowMs / 4;
inline constexpr int64_t kFirstTryMs = kHourMs / 6;
inline constexpr int64_t kLongestDelayMs = 8 * kHourMs;
// What the library keeps, of users less.
inline constexpr size_t kMostSparedProcesses = 64;
inline constexpr size_t kMostSparedUsers = 8;

struct SparedProcess {
  uint32_t pid = 0;
  uint64_t start_time = 0;  // 0 if it is not known
  uint32_t uid = 0;
  int32_t file = 0;         // TASKWARDEN_READS_: which held the watch up
  int64_t next_try_ms = 0;  // when it is asked whether it answers
  int64_t delay_ms = 0;     // until the next try after that one

  bool operator==(const SparedProcess&) const = default;
};

struct SparedUser {
  uint32_t uid = 0;  // or TASKWARDEN_EVERYBODY
  int64_t until_ms = 0;

  bool operator==(const SparedUser&) const = default;
};

// That a process of this user held the watch up.
struct Hold {
  uint32_t uid = 0;
  int64_t at_ms = 0;

  bool operator==(const Hold&) const = default;
};

// How much of the cycle's time went into the memory of this user's processes, or of everybody's.
struct Share {
  uint32_t uid = 0;
  int64_t since_ms = 0;
  int64_t spent_ms = 0;

  bool operator==(const Share&) const = default;
};

struct Sparing {
  std::vector<SparedProcess> processes{};
  std::vector<SparedUser> users{};
  std::vector<Hold> holds{};    // of the last hour
  std::vector<Share> shares{};  // of the last ten minutes
  // Until a process is tried for the first time; then twice as long, and so on.
  int64_t first_try_ms = kFirstTryMs;

  bool operator==(const Sparing&) const = default;
};

// `process` holds the watch up: it is spared, and perhaps its user, or everybody, with it. Members
// beyond `file` need not be set.
void note_hold(SparedProcess process, int64_t now_ms, Sparing* sparing);

// The cycle was seen reading the memory of a process of `uid`, `ms` after it was looked at before.
// True when that was too often, and the user is spared, or everybody.
bool note_share(uint32_t uid, int64_t ms, int64_t now_ms, Sparing* sparing);

// A process that is to be tried now, if there is one; its next try is put off.
std::optional<SparedProcess> take_due(int64_t now_ms, Sparing* sparing);
// `process` answers again, or has ended.
void forget(const SparedProcess& process, Sparing* sparing);

// The users whose time is over, who are taken out.
std::vector<SparedUser> take_released(int64_t now_ms, Sparing* sparing);

}  // namespace host

#endif  // HOST_WATCH_SPARING_H_
