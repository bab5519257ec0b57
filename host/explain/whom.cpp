#include "host/explain/whom.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "host/explain/command_words.h"
#include "host/explain/group_place.h"
#include "host/explain/process_stat.h"
#include "host/explain/words.h"

namespace host {
namespace {

constexpr size_t kCommandMost = 4096;

// The word behind `key`, with which its line begins.
std::string_view word_after(std::string_view text, std::string_view key) {
  std::string_view word;
  each_line_of(text, [&](std::string_view line) {
    if (word.empty() && line.starts_with(key)) {
      line.remove_prefix(key.size());
      word = take_word(&line);
    }
  });
  return word;
}

std::string first_word(const std::string& text) {
  std::string_view rest = std::string_view(text).substr(0, text.find('\n'));
  return std::string(take_word(&rest));
}

void set_limits_of_group(const std::string& root, const GroupPlace& place, const ReadFn& read,
                         Whom* whom) {
  const bool v1 = place.memory_path.has_value();
  std::string path = v1 ? *place.memory_path : place.path.value_or("");
  if (path.empty() || path.find("/..") != path.npos) {
    return;
  }
  // Version 1 says "none" by about 2^63.
  constexpr int64_t kNoLimit = INT64_C(1) << 62;
  const std::string base = v1 ? root + "/memory" : root;
  for (;; path.resize(path.rfind('/'))) {
    const std::string group = base + (path == "/" ? "" : path);
    const std::string files[] = {group + (v1 ? "/memory.limit_in_bytes" : "/memory.max"),
                                 group + (v1 ? "/memory.usage_in_bytes" : "/memory.current")};
    int64_t limit = 0;
    int64_t used = 0;
    if (parse_number(first_word(read(files[0])), &limit) && limit >= 0 && limit < kNoLimit &&
        (whom->group_limit_kb == Whom::kNotKnown || limit / 1024 < whom->group_limit_kb)) {
      whom->group_limit_kb = limit / 1024;
      whom->group_kb =
          parse_number(first_word(read(files[1])), &used) ? used / 1024 : Whom::kNotKnown;
    }
    if (path.rfind('/') == path.npos || path == "/") {
      return;
    }
  }
}

}  // namespace

int64_t open_files_limit_of(std::string_view limits) {
  const std::string_view word = word_after(limits, "Max open files");
  int64_t limit = 0;
  if (word == "unlimited") {
    return Whom::kUnlimited;
  }
  return parse_number(word, &limit) && limit >= 0 ? limit : Whom::kNotKnown;
}

std::string parse_user(std::string_view passwd, int64_t uid) {
  std::string user;
  const std::string wanted = std::to_string(uid);
  each_line_of(passwd, [&](std::string_view line) {
    const std::string_view name = take_until(&line, ':');
    take_until(&line, ':');
    if (user.empty() && take_until(&line, ':') == wanted) {
      user = name;
    }
  });
  return user;
}

int64_t parse_uid(std::string_view status) {
  uint32_t uid = 0;
  return parse_number(word_after(status, "Uid:"), &uid) ? int64_t{uid} : Whom::kNotKnown;
}

Whom look_at_whom(const WhomAsked& asked, const ReadFn& read) {
  const std::string process = asked.proc_root + "/" + std::to_string(asked.pid);
  Whom whom{.pid = asked.pid};
  if (const std::optional<ProcessStat> stat = parse_process_stat(read(process + "/stat"))) {
    whom.name = stat->name;
    whom.start = stat->start;
    whom.parent = stat->parent;
    const auto parent =
        parse_process_stat(read(asked.proc_root + "/" + std::to_string(stat->parent) + "/stat"));
    whom.parent_name = parent ? parent->name : "";
    const auto ticks = static_cast<uint64_t>(std::max(::sysconf(_SC_CLK_TCK), 1L));
    uint64_t uptime = 0;
    const std::string uptime_text = read(asked.proc_root + "/uptime");
    std::string_view up = uptime_text;
    if (parse_number(take_until(&up, '.'), &uptime)) {
      whom.age_s = static_cast<int64_t>(uptime - std::min(stat->start / ticks, uptime));
    }
  }
  whom.uid = parse_uid(read(process + "/status"));
  if (whom.uid != Whom::kNotKnown) {
    whom.user = parse_user(read("/etc/passwd"), whom.uid);
  }
  const GroupPlace place = parse_cgroup(read(process + "/cgroup"));
  whom.control_group = place.path.value_or("");
  whom.unit = place.unit;
  whom.container = place.container;
  whom.runtime = place.runtime;
  whom.pod = place.pod;
  set_limits_of_group(asked.group_root, place, read, &whom);
  whom.open_files_limit = open_files_limit_of(read(process + "/limits"));
  return whom;
}

void look_at_command(const WhomAsked& asked, const ReadFn& read, const LinkFn& link, Whom* whom) {
  const std::string process = asked.proc_root + "/" + std::to_string(asked.pid);
  if (asked.no_arguments) {
    const std::string program = link(process + "/exe");
    whom->command = program.empty() ? std::vector<std::string>() : std::vector{program};
    return;
  }
  const std::string words = read(process + "/cmdline");
  whom->command = command_words(std::string_view(words).substr(0, kCommandMost));
  whom->script = script_of(whom->command);
}

}  // namespace host
