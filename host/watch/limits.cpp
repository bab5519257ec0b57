#include "host/watch/limits.h"

#include <algorithm>
#include <optional>

#include "host/common/file_text.h"
#include "host/common/words.h"
#include "host/explain/group_place.h"
#include "host/explain/whom.h"

namespace host {
namespace {

// Seconds between two readings.
constexpr double kProcessInterval = 600;
constexpr double kGroupInterval = 600;  // of a group without a limit
constexpr double kLimitedInterval = 180;
constexpr double kSystemInterval = 30;
// Groups that nobody was in for so long are forgotten.
constexpr double kForgetAfter = 3 * kProcessInterval;
// A pass reads the files of so many processes, and of so many groups.
constexpr size_t kReadsAtOnce = 32;
constexpr size_t kGroupsAtOnce = 8;

constexpr size_t kFileMax = 16384;

// The number of 0 or more that follows `key` in a line; -1 if there is none.
int64_t number_after(std::string_view text, std::string_view key) {
  int64_t value = 0;
  return parse_number(word_after(text, key), &value) && value >= 0 ? value : -1;
}

int64_t or_unknown(const std::optional<int64_t>& value) {
  return value.value_or(-1);
}

}  // namespace

LimitReader::LimitReader(Places places) : places_(std::move(places)), groups_(1) {}

void LimitReader::begin_pass(double now) {
  reads_left_ = kReadsAtOnce;
  if (now >= system_due_) {
    read_system(now);
  }
  size_t left = kGroupsAtOnce;
  for (size_t i = 1; i < groups_.size() && left != 0; ++i) {
    Group& group = groups_[i];
    if (!group.key.empty() && now - group.used > kForgetAfter) {
      group = Group{};
    } else if (!group.key.empty() && now >= group.due) {
      read_group(now, &group);
      --left;
    }
  }
}

Limits LimitReader::look(int32_t pid, double now, Place* place) {
  if (now >= place->due && reads_left_ != 0) {
    --reads_left_;
    read(pid, now, place);
  }
  Group& group = groups_[place->group];
  group.used = now;
  Limits limits{.open_files = place->open_files};
  limits.memory_room_kb = or_unknown(group.room.memory_kb);
  limits.threads_room = or_unknown(group.room.threads);
  if (threads_room_ >= 0) {
    limits.threads_room =
        limits.threads_room < 0 ? threads_room_ : std::min(limits.threads_room, threads_room_);
  }
  return limits;
}

void LimitReader::read(int32_t pid, double now, Place* place) {
  const std::string process = places_.proc_root + "/" + std::to_string(pid);
  const int64_t files = open_files_limit_of(read_file(process + "/limits", kFileMax).text);
  place->open_files =
      files == Whom::kUnlimited ? -1 : static_cast<int32_t>(std::min<int64_t>(files, INT32_MAX));
  const FileText groups = read_file(process + "/cgroup", kFileMax);
  place->group = groups.error == 0 ? find_group(groups.text, now) : 0;
  // Not all at once when a watch begins with many.
  place->due = now + kProcessInterval + pid % 60;
}

uint32_t LimitReader::find_group(const std::string& text, double now) {
  size_t free = 0;
  for (size_t i = 1; i < groups_.size(); ++i) {
    if (groups_[i].key == text) {
      return static_cast<uint32_t>(i);
    }
    free = groups_[i].key.empty() ? i : free;
  }
  if (free == 0) {
    free = groups_.size();
    groups_.emplace_back();
  }
  Group& group = groups_[free];
  group.key = text;
  group.paths = parse_control_groups(text);
  const GroupPlace place = place_of(group.paths);
  group.unit = place.unit.empty() ? place.container : place.unit;
  group.used = now;
  read_group(now, &group);
  return static_cast<uint32_t>(free);
}

void LimitReader::read_group(double now, Group* group) {
  group->room = read_group_room(group->paths, places_.cgroup_root);
  const bool limited = group->room.memory_kb || group->room.threads;
  group->due = now + (limited ? kLimitedInterval : kGroupInterval);
}

void LimitReader::read_system(double now) {
  system_due_ = now + kSystemInterval;
  const std::string& root = places_.proc_root;
  available_kb_ = number_after(read_file(root + "/meminfo", 2048).text, "MemAvailable:");
  // "0.00 0.01 0.05 1/123 4567": of all tasks, and the last pid given out (proc(5)).
  const std::string load = read_file(root + "/loadavg", 256).text;
  const int64_t tasks = number_after(load.substr(std::min(load.size(), load.find('/'))), "/");
  const int64_t most = number_after(read_file(root + "/sys/kernel/threads-max", 64).text, "");
  const int64_t pids = number_after(read_file(root + "/sys/kernel/pid_max", 64).text, "");
  threads_room_ = -1;
  if (tasks >= 0 && most >= 0 && pids >= 0) {
    threads_room_ = std::max<int64_t>(0, std::min(most, pids) - tasks);
  }
}

}  // namespace host
