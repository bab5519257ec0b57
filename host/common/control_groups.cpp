#include "host/common/control_groups.h"

#include <algorithm>
#include <charconv>

#include "host/common/file_text.h"

namespace host {
namespace {

// What version 1 calls no limit is the largest multiple of a page; anything like it is none.
constexpr int64_t kNoLimit = int64_t{1} << 60;
constexpr size_t kFileMax = 16384;

// The next line of `*text`, which is taken away from it.
std::string_view next_line(std::string_view* text) {
  const std::string_view line = text->substr(0, text->find('\n'));
  text->remove_prefix(std::min(text->size(), line.size() + 1));
  return line;
}

// A number from 0 on at the front of `text`; nothing for "max" and what is none.
std::optional<int64_t> number(std::string_view text) {
  int64_t value = 0;
  const auto [rest, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  return error == std::errc() && value >= 0 && value < kNoLimit ? std::optional(value)
                                                                : std::nullopt;
}

std::optional<int64_t> read_number(const std::string& path) {
  return number(read_file(path, kFileMax).text);
}

std::optional<int64_t> read_entry(const std::string& path, std::string_view key) {
  const std::string text = read_file(path, kFileMax).text;
  for (std::string_view rest = text; !rest.empty();) {
    const std::string_view line = next_line(&rest);
    if (line.size() > key.size() && line.starts_with(key) && line[key.size()] == ' ') {
      return number(line.substr(key.size() + 1));
    }
  }
  return std::nullopt;
}

// The names of a controller's files.
struct Files {
  const char* limit;
  const char* usage;
  const char* inactive;  // key in memory.stat, or null
};
constexpr Files kMemory2{"memory.max", "memory.current", "inactive_file"};
constexpr Files kMemory1{"memory.limit_in_bytes", "memory.usage_in_bytes", "total_inactive_file"};
constexpr Files kPids{"pids.max", "pids.current", nullptr};

// The least room of the group at `path` below `root` and of all above it.
std::optional<int64_t> least_room(const std::string& root, std::string path, const Files& files) {
  std::optional<int64_t> least;
  if (path.find("/..") != path.npos) {
    return least;  // outside of our namespace
  }
  for (;;) {
    const std::string group = root + (path == "/" ? "" : path) + "/";
    const std::optional<int64_t> limit = read_number(group + files.limit);
    const std::optional<int64_t> usage = limit ? read_number(group + files.usage) : limit;
    if (usage) {
      const int64_t inactive = files.inactive == nullptr
                                   ? 0
                                   : read_entry(group + "memory.stat", files.inactive).value_or(0);
      const int64_t room = std::max<int64_t>(0, *limit - std::max<int64_t>(0, *usage - inactive));
      least = std::min(least.value_or(room), room);
    }
    if (path.size() <= 1) {
      return least;
    }
    path.resize(std::max<size_t>(1, path.rfind('/')));
  }
}

}  // namespace

ControlGroups parse_control_groups(std::string_view text) {
  ControlGroups groups;
  while (!text.empty()) {
    // hierarchy:controller,controller:path
    const std::string_view line = next_line(&text);
    const size_t first = line.find(':');
    const size_t second = line.find(':', first + 1);
    if (first == line.npos || second == line.npos || line.substr(second + 1, 1) != "/") {
      continue;
    }
    const std::string controllers =
        "," + std::string(line.substr(first + 1, second - first - 1)) + ",";
    const std::string path(line.substr(second + 1));
    if (line.starts_with("0::")) {
      groups.unified = path;
    }
    if (controllers.find(",memory,") != controllers.npos) {
      groups.memory = path;
    }
    if (controllers.find(",pids,") != controllers.npos) {
      groups.pids = path;
    }
  }
  return groups;
}

GroupRoom read_group_room(const ControlGroups& groups, const std::string& root) {
  GroupRoom room;
  // A controller that version 1 has is not in the unified hierarchy.
  if (groups.memory) {
    room.memory_kb = least_room(root + "/memory", *groups.memory, kMemory1);
  } else if (groups.unified) {
    room.memory_kb = least_room(root, *groups.unified, kMemory2);
  }
  if (groups.pids) {
    room.threads = least_room(root + "/pids", *groups.pids, kPids);
  } else if (groups.unified) {
    room.threads = least_room(root, *groups.unified, kPids);
  }
  if (room.memory_kb) {
    *room.memory_kb /= 1024;
  }
  return room;
}

}  // namespace host
