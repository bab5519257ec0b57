#include "host/explain/look.h"

#include <errno.h>
#include <fcntl.h>
#include <string.h>

#include <algorithm>
#include <cstdint>
#include <nlohmann/json.hpp>
#include <string_view>
#include <vector>

#include "host/common/bounded_reader.h"
#include "host/common/file_text.h"
#include "host/explain/process_reader.h"
#include "host/explain/process_stat.h"

namespace host {

// Between the child that reads and this process alone.
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Holding, kind, name, amount, swapped_kb, areas, largest_kb,
                                   newest, newest_start)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Holdings, largest, others, others_amount, total, whole)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Look::Held, is_known, why, holdings)
NLOHMANN_DEFINE_TYPE_NON_INTRUSIVE(Whom, pid, start, name, command, script, uid, user, age_s,
                                   control_group, unit, container, runtime, pod, parent,
                                   parent_name, open_files_limit, group_limit_kb, group_kb)

namespace {

using Clock = std::chrono::steady_clock;

constexpr size_t kAnswerMost = 1 << 20;
// What the child keeps back for its end.
constexpr std::chrono::milliseconds kMargin{10};

constexpr char kWhom[] = "whom";
constexpr char kExists[] = "exists";

// A member of the answer: its size, then { key: value } as MessagePack.
void tell_member(const Tell& tell, const std::string& key, const nlohmann::json& value) {
  const std::vector<uint8_t> packed = nlohmann::json::to_msgpack({{key, value}});
  const auto size = static_cast<uint32_t>(packed.size());
  tell({reinterpret_cast<const char*>(&size), sizeof(size)});
  tell({reinterpret_cast<const char*>(packed.data()), packed.size()});
}

// All whole members of an answer.
nlohmann::json members_of(std::string_view answer) {
  nlohmann::json members = nlohmann::json::object();
  uint32_t size = 0;
  while (answer.size() >= sizeof(size)) {
    ::memcpy(&size, answer.data(), sizeof(size));
    answer.remove_prefix(sizeof(size));
    if (size > answer.size()) {
      break;
    }
    const auto member = nlohmann::json::from_msgpack(answer.substr(0, size), true, false);
    if (member.is_object()) {
      members.update(member);
    }
    answer.remove_prefix(size);
  }
  return members;
}

// The time for the first of `parts` things that are still to be read.
Deadline share(Deadline deadline, int parts) {
  const auto now = Clock::now();
  return now + (deadline - now) / parts;
}

Look::Held held_of(const Reading& reading) {
  const bool known = reading.error == 0;
  return {known, known ? "" : ::strerror(reading.error), reading.holdings};
}

// In the child.
int answer_look(const LookAsked& asked, Deadline deadline, const Tell& tell) {
  const std::string process = asked.whom.proc_root + "/" + std::to_string(asked.whom.pid);
  const ReadFn read = [](const std::string& path) { return read_file(path, 65536).text; };
  const LinkFn link = [](const std::string& path) { return read_link(AT_FDCWD, path); };
  const auto begun = parse_process_stat(read(process + "/stat"));
  if (!begun) {
    return ESRCH;
  }
  int parts = (asked.threads ? 1 : 0) + (asked.files ? 1 : 0) + (asked.memory ? 1 : 0);
  const auto tell_held = [&](Part part, const Reading& reading) {
    tell_member(tell, part_name(part), held_of(reading));
  };
  if (asked.threads) {
    tell_held(Part::kThreads, read_threads(process, share(deadline, parts--)));
  }
  if (asked.files) {
    Holdings folders;
    const Reading files = read_open_files(process, share(deadline, parts--), &folders);
    tell_held(Part::kFiles, files);
    tell_held(Part::kFolders, {files.error, folders});
  }
  const auto is_same = [&] {
    const auto now = parse_process_stat(read(process + "/stat"));
    return now && now->start == begun->start;
  };
  // The files that come from the memory of the process may not answer: they are the last.
  tell_member(tell, kExists, is_same());
  Whom whom = look_at_whom(asked.whom, read);
  tell_member(tell, kWhom, whom);
  if (asked.memory_answers || asked.whom.no_arguments) {
    look_at_command(asked.whom, read, link, &whom);
    tell_member(tell, kWhom, whom);
  }
  if (!asked.memory_answers) {
    return ETIMEDOUT;
  }
  if (asked.memory) {
    tell_held(Part::kMemory, read_memory(process, deadline));
    tell_member(tell, kExists, is_same());
  }
  return 0;
}

}  // namespace

const char* part_name(Part part) {
  static constexpr const char* kNames[] = {"threads", "files", "folders", "memory"};
  return kNames[static_cast<size_t>(part)];
}

Look look_at(const LookAsked& asked) {
  Look look;
  look.time = std::chrono::system_clock::now();
  const Deadline deadline = Clock::now() + asked.patience - std::min(kMargin, asked.patience / 4);
  const FileText answer = answer_within(asked.patience, kAnswerMost, [&](const Tell& tell) {
    return answer_look(asked, deadline, tell);
  });
  const std::string why = answer.error == ETIMEDOUT ? kNoAnswer : ::strerror(answer.error);
  const auto ask = [&](Part part, bool is_asked) { look.of(part).why = is_asked ? why : ""; };
  ask(Part::kThreads, asked.threads);
  ask(Part::kFiles, asked.files);
  ask(Part::kFolders, asked.files);
  ask(Part::kMemory, asked.memory);
  try {
    const nlohmann::json members = members_of(answer.text);
    look.exists = members.value(kExists, false);
    if (look.exists && members.contains(kWhom)) {
      look.whom = members.at(kWhom).get<Whom>();
    }
    for (const Part part : kParts) {
      if (look.exists && members.contains(part_name(part))) {
        look.of(part) = members.at(part_name(part)).get<Look::Held>();
      }
    }
  } catch (const nlohmann::json::exception&) {
    // A child that was ended while it told something.
  }
  look.whom.pid = asked.whom.pid;
  return look;
}

}  // namespace host
