#include "host/common/control_groups.h"

#include <algorithm>

#include "host/common/words.h"

namespace host {
namespace {

// What version 1 calls no limit is the largest multiple of a page; anything like it is none.
constexpr int64_t kNoLimit = int64_t{1} << 60;
constexpr size_t kFileMax = 16384;

// From 0 on; nothing for "max" and what is no number.
std::optional<int64_t> number(std::string_view word) {
  int64_t value = 0;
  return parse_number(word, &value) && value >= 0 && value < kNoLimit ? std::optional(value)
                                                                      : std::nullopt;
}

// The names of a controller's files.
struct Files {
  const char* limit;
  const char* usage;
  const char* inactive;  // key in memory.stat, or null
};
constexpr Files kMemory2{"memory.max", "memory.current", "inactive_file "};
constexpr Files kMemory1{"memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file "};
constexpr Files kPids{"pids.max", "pids.current", nullptr};

// Where a controller has the group of a process. A controller that version 1 has is not in the
// unified hierarchy.
struct Place {
  std::string root{};
  std::string path{};  // empty if there is none
  const Files* files = nullptr;
};

Place memory_place(const ControlGroups& groups, const std::string& root) {
  return groups.memory ? Place{root + "/memory", *groups.memory, &kMemory1}
                       : Place{root, groups.unified.value_or(""), &kMemory2};
}

Place pids_place(const ControlGroups& groups, const std::string& root) {
  return {groups.pids ? root + "/pids" : root,
          groups.pids ? *groups.pids : groups.unified.value_or(""), &kPids};
}

// Calls `take` with the folder and the limit of the group at `place` and of all above it that have
// a limit.
template <typename Take>
void each_limit(const Place& place, const ReadFn& read, Take take) {
  std::string path = place.path;
  if (path.empty() || path.find("/..") != path.npos) {
    return;  // none, or outside of our namespace
  }
  for (;;) {
    const std::string folder = place.root + (path == "/" ? "" : path) + "/";
    if (const auto limit = number(word_after(read(folder + place.files->limit), ""))) {
      take(folder, *limit);
    }
    if (path.size() <= 1) {
      return;
    }
    path.resize(std::max<size_t>(1, path.rfind('/')));
  }
}

std::optional<int64_t> usage_of(const std::string& folder, const Files& files, const ReadFn& read) {
  return number(word_after(read(folder + files.usage), ""));
}

std::optional<int64_t> least_room(const Place& place, const ReadFn& read) {
  std::optional<int64_t> least;
  each_limit(place, read, [&](const std::string& folder, int64_t limit) {
    const Files& files = *place.files;
    if (const std::optional<int64_t> usage = usage_of(folder, files, read)) {
      const int64_t inactive =
          files.inactive == nullptr
              ? 0
              : number(word_after(read(folder + "memory.stat"), files.inactive)).value_or(0);
      const int64_t room = std::max<int64_t>(0, limit - std::max<int64_t>(0, *usage - inactive));
      least = std::min(least.value_or(room), room);
    }
  });
  return least;
}

}  // namespace

ControlGroups parse_control_groups(std::string_view text) {
  ControlGroups groups;
  each_line_of(text, [&](std::string_view line) {
    // hierarchy:controller,controller:path
    const std::string_view hierarchy = take_until(&line, ':');
    std::string_view controllers = take_until(&line, ':');
    if (!line.starts_with('/')) {
      return;
    }
    if (hierarchy == "0" && controllers.empty()) {
      groups.unified = line;
    }
    while (!controllers.empty()) {
      const std::string_view controller = take_until(&controllers, ',');
      if (controller == "memory") {
        groups.memory = line;
      } else if (controller == "pids") {
        groups.pids = line;
      } else if (controller == "name=systemd") {
        groups.systemd = line;
      }
    }
  });
  return groups;
}

GroupRoom read_group_room(const ControlGroups& groups, const std::string& root) {
  const ReadFn read = [](const std::string& path) { return read_file(path, kFileMax).text; };
  GroupRoom room{least_room(memory_place(groups, root), read),
                 least_room(pids_place(groups, root), read)};
  if (room.memory_kb) {
    *room.memory_kb /= 1024;
  }
  return room;
}

std::optional<GroupLimit> read_memory_limit(const ControlGroups& groups, const std::string& root,
                                            const ReadFn& read) {
  std::optional<GroupLimit> narrowest;
  const Place place = memory_place(groups, root);
  each_limit(place, read, [&](const std::string& folder, int64_t limit) {
    if (!narrowest || limit / 1024 < narrowest->limit_kb) {
      narrowest = {limit / 1024, usage_of(folder, *place.files, read)};
    }
  });
  if (narrowest && narrowest->used_kb) {
    *narrowest->used_kb /= 1024;
  }
  return narrowest;
}

}  // namespace host
