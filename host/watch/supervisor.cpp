#include "host/watch/supervisor.h"

#include <errno.h>
#include <string.h>
#include <time.h>

#include <algorithm>
#include <chrono>
#include <optional>
#include <utility>
#include <vector>

#include "host/common/bounded_reader.h"
#include "host/common/escape.h"
#include "host/common/output.h"
#include "host/watch/process_identity.h"
#include "host/watch/resident_code.h"

namespace host {
namespace {

constexpr timespec kTick = {.tv_sec = 1, .tv_nsec = 0};
// By then baselines are taken, and what is announced first has been told.
constexpr uint64_t kPassesOfStart = 3;
// For records that are arriving when the program begins anew.
constexpr std::chrono::milliseconds kRecordPatience{200};

int64_t monotonic_ms() {
  timespec now;
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  return int64_t{now.tv_sec} * 1000 + now.tv_nsec / 1'000'000;
}

std::string process_text(uint32_t pid, const std::optional<ProcessIdentity>& identity) {
  return "process " + std::to_string(pid) +
         (identity
              ? " \"" + escape_text(identity->name) + "\", uid " + std::to_string(identity->uid)
              : "");
}

// The memory of this user's processes, or of everybody's.
std::string memory_text(const SparedUser& user) {
  return "the memory of all processes" +
         (user.uid == TASKWARDEN_EVERYBODY ? "" : " of uid " + std::to_string(user.uid));
}

void say_spared(const std::vector<SparedUser>& users) {
  for (const SparedUser& user : users) {
    say(memory_text(user) +
        " is left alone for an hour, since reading it held up the watch too often");
  }
}

// Whether a file has said something, be it that we may not read it.
bool is_answer(int error) {
  return error == 0 || error == ENODATA || error == EACCES || error == EPERM || error == ENOENT ||
         error == ESRCH;
}

void apply(const Sparing& sparing) {
  for (const SparedProcess& process : sparing.processes) {
    taskwarden_spare(process.pid, process.start_time, 1);
  }
  for (const SparedUser& user : sparing.users) {
    taskwarden_spare_user(user.uid, 1);
  }
}

std::string status_line(const taskwarden_progress& progress, const Sparing& sparing) {
  return std::string(progress.is_paused != 0 ? "Paused" : "Watching") + ": " +
         std::to_string(progress.passes) + " passes, " + std::to_string(progress.baselines) +
         " processes with a baseline, " + std::to_string(sparing.processes.size()) +
         " without their memory";
}

}  // namespace

void resume_after_hold(const CarriedState& carried) {
  if (!carried.comm.empty()) {
    OwnImage::set_comm(carried.comm);
  }
  adopt_children(carried.children);
  apply(carried.sparing);
  if (carried.held_by == 0) {
    return;
  }
  say("the watch has begun anew, freed from process " + std::to_string(carried.held_by) +
      ": its cmdline, maps and smaps are left alone, and it goes by its short name; the baselines "
      "of all " +
      std::to_string(carried.baselines) + " processes that had one begin anew");
  say_spared(carried.sparing.users);
}

void Supervisor::run() {
  for (;;) {
    ::nanosleep(&kTick, nullptr);
    look(monotonic_ms());
  }
}

void Supervisor::look(int64_t now_ms) {
  taskwarden_progress progress = {};
  progress.size = sizeof(progress);
  taskwarden_get_progress(&progress);
  const int64_t asleep_ms = std::clamp<int64_t>(now_ms - looked_ms_, 0, HoldDetector::kAwakeMs);
  looked_ms_ = now_ms;
  notify_.tell(progress, status_line(progress, options_.sparing), now_ms);
  if (detector_.is_held(progress, now_ms)) {
    get_free(progress, now_ms);
  } else if (is_memory_file(progress.reads)) {
    note_reading(progress.reads_pid, asleep_ms, now_ms);
  }
  release_users(now_ms);
  try_process(now_ms);
  if (progress.passes >= kPassesOfStart && !std::exchange(has_started_, true)) {
    give_back_code();
  }
}

void Supervisor::note_reading(uint32_t pid, int64_t ms, int64_t now_ms) {
  const auto identity = identify(pid, options_.proc_root);
  Sparing& sparing = options_.sparing;
  if (identity && note_share(identity->uid, ms, now_ms, &sparing)) {
    apply(sparing);
    say_spared(sparing.users);
  }
}

void Supervisor::get_free(const taskwarden_progress& progress, int64_t now_ms) {
  const uint32_t pid = progress.reads_pid;
  const auto identity = pid != 0 ? identify(pid, options_.proc_root) : std::nullopt;
  const std::string file = file_name(progress.reads);
  const std::string seconds = std::to_string((now_ms - progress.reads_since_ms) / 1000);
  say((pid != 0 ? process_text(pid, identity) + " holds up the watch: its " + file
                : "the " + file + " holds up the watch: it") +
      " has not answered for " + seconds + " s");
  if (!is_memory_file(progress.reads)) {
    return;  // beginning anew would lead here again
  }
  CarriedState state = {.held_by = pid,
                        .baselines = progress.baselines,
                        .children = children_left_behind(),
                        .sparing = options_.sparing};
  note_hold({.pid = pid,
             .start_time = identity ? identity->start_time : 0,
             .uid = identity ? identity->uid : TASKWARDEN_EVERYBODY,
             .file = progress.reads},
            now_ms, &state.sparing);
  notify_.bear_with_us();
  const int error = begin_anew(&state);
  options_.sparing = state.sparing;
  apply(options_.sparing);
  say(std::string("the watch cannot begin anew, and waits for that process: ") + ::strerror(error));
}

// Returns only on failure, with an errno value.
int Supervisor::begin_anew(CarriedState* state) {
  state->comm = OwnImage::comm();
  if (RecordServer* const server = options_.server; server != nullptr) {
    server->stand_still(kRecordPatience);
    state->listener = server->listener();
    state->refused_senders = server->refused().senders;
    state->refused_texts = server->refused().texts;
  }
  options_.save(state);
  finish_output();
  const unique_fd left = leave_state(*state);
  const int error = left.ok() ? image_.run_again() : errno;
  withdraw_state(*state);
  if (options_.server != nullptr) {
    options_.server->go_on();
  }
  return error;
}

void Supervisor::release_users(int64_t now_ms) {
  for (const SparedUser& user : take_released(now_ms, &options_.sparing)) {
    taskwarden_spare_user(user.uid, 0);
    say(memory_text(user) + " is read on");
  }
}

void Supervisor::try_process(int64_t now_ms) {
  const std::optional<SparedProcess> due = take_due(now_ms, &options_.sparing);
  if (!due) {
    return;
  }
  const auto identity = identify(due->pid, options_.proc_root);
  const bool has_ended = !identity || identity->start_time != due->start_time;
  if (!has_ended) {
    const std::string directory = options_.proc_root + "/" + std::to_string(due->pid) + "/";
    for (const FileText& file : read_files_within(
             {directory + "cmdline", directory + file_name(due->file)}, kMostOfFile)) {
      if (!is_answer(file.error)) {
        return;
      }
    }
    say(process_text(due->pid, identity) + " answers again: its memory is read on");
  }
  taskwarden_spare(due->pid, due->start_time, 0);
  forget(*due, &options_.sparing);
}

}  // namespace host
