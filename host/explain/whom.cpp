#include "host/explain/whom.h"

#include <unistd.h>

#include <algorithm>
#include <optional>

#include "host/common/words.h"
#include "host/explain/command_words.h"
#include "host/explain/group_place.h"
#include "host/explain/process_stat.h"

namespace host {
namespace {

constexpr size_t kCommandMost = 4096;

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
  const ControlGroups groups = parse_control_groups(read(process + "/cgroup"));
  const GroupPlace place = place_of(groups);
  whom.control_group = place.path;
  whom.unit = place.unit;
  whom.container = place.container;
  whom.runtime = place.runtime;
  whom.pod = place.pod;
  if (const auto limit = read_memory_limit(groups, asked.group_root, read)) {
    whom.group_limit_kb = limit->limit_kb;
    whom.group_kb = limit->used_kb.value_or(Whom::kNotKnown);
  }
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
