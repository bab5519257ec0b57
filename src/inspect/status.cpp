#include "inspect/status.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <stdlib.h>
#include <string.h>

#include "inspect/key_table.h"
#include "inspect/start_time.h"
#include "inspect/status_parse.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "platform/text_field.h"
#include "proctable/desc_field.h"
#include "proctable/zygote.h"
#include "report/log.h"
#include "taskwarden/observers.h"

namespace {

constexpr size_t kLongestBaseName = 57;

bool read_command_line(int pid, std::string* content) {
  const auto asked = static_cast<unsigned>(pid);
  if (tw_is_spared(asked, tw_read_start_time)) {
    return false;
  }
  const ReadingMark mark(TASKWARDEN_READS_COMMAND_LINE, asked);
  return android::base::ReadFileToString(
      android::base::StringPrintf("%s/%u/cmdline", tw_proc_root(), asked), content, false);
}

void set_display_name(int pid, const char* short_name, CommandLineReader read,
                      tw_process_desc* desc) {
  std::string command_line;
  const char* base = short_name;
  if (read(pid, &command_line)) {
    const size_t length = strlen(command_line.c_str());
    if (length >= 1 && length <= kLongestBaseName) {
      base = command_line.c_str();
    }
  }
  const size_t length = append_cut(desc->name, append_cut(desc->name, 0, base), "#");
  append_cut(desc->name, length, static_cast<unsigned>(pid));
}

void note_zygote(int pid, const tw_process_desc& desc) {
  if (desc.ppid != 1) {
    return;
  }
  const std::string_view name = desc.name;
  if (name.starts_with("zygote64")) {
    pid_of_zygote64 = pid;
  } else if (name.starts_with("zygote")) {
    pid_of_zygote = pid;
  }
}

// What is done with the value of a line.
enum class Use { kName, kState, kPid, kNumber, kParent, kLastNumber };

struct StatusKey {
  std::string_view prefix;  // the name with its colon
  Use use;
  uint32_t known = 0;  // the bit that says it was read
  DescField number{};
};

constexpr StatusKey kKeys[] = {
    {"Name:", Use::kName, TASKWARDEN_KNOWN_NAME},
    {"State:", Use::kState, TASKWARDEN_KNOWN_STATE},
    {"Pid:", Use::kPid},
    {"PPid:", Use::kParent, TASKWARDEN_KNOWN_PARENT, &tw_process_desc::ppid},
    {"FDSize:", Use::kNumber, TASKWARDEN_KNOWN_DESCRIPTOR_TABLE, &tw_process_desc::fd_size},
    {"VmHWM:", Use::kNumber, TASKWARDEN_KNOWN_PEAK, &tw_process_desc::vm_hwm_kb},
    {"VmRSS:", Use::kNumber, TASKWARDEN_KNOWN_RESIDENT, &tw_process_desc::vm_rss_kb},
    {"Threads:", Use::kLastNumber, TASKWARDEN_KNOWN_THREADS, &tw_process_desc::threads},
};
constexpr KeyTable kStatusLines(kKeys);

}  // namespace

uint32_t tw_status_parse(int pid, LineReader& lines, CommandLineReader read,
                         tw_process_desc* desc) {
  const auto asked = static_cast<unsigned>(pid);
  uint32_t known = 0;
  for (std::string_view line; !(line = lines.next()).empty();) {
    const StatusKey* const key = kStatusLines.find(line);
    if (key == nullptr) {
      continue;
    }
    const char* const value = value_of(lines);
    if (value == nullptr) {
      TW_LOG(TW_TAG_STATS, ">> failed to get proc %u's %.*s!!\n", asked,
             static_cast<int>(key->prefix.size() - 1), key->prefix.data());
      return known;
    }
    switch (key->use) {
      case Use::kName:
        set_display_name(pid, value, read, desc);
        break;
      case Use::kState:
        desc->state = value[0];
        break;
      case Use::kPid:
        if (atoi(value) != pid) {
          TW_LOG(TW_TAG_STATS, ">> inconsistent pid: %u, %u\n", asked,
                 static_cast<unsigned>(atoi(value)));
          return 0;
        }
        break;
      case Use::kNumber:
      case Use::kParent:
      case Use::kLastNumber:
        // Sizes come as decimal text of 32 bits and are widened with their sign.
        key->number.set(desc, static_cast<uint64_t>(int64_t{atoi(value)}));
        break;
    }
    known |= key->known;
    if (key->use == Use::kParent) {
      note_zygote(pid, *desc);
    } else if (key->use == Use::kLastNumber) {
      break;
    }
  }
  return known;
}

uint32_t tw_process_read_status(int pid, tw_process_desc* desc) {
  const auto asked = static_cast<unsigned>(pid);
  const ReadingMark mark(TASKWARDEN_READS_STATUS, asked);
  LineReader lines = LineReader::open(ProcPath(asked, "/status").c_str());
  if (!lines.ok()) {
    TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's status!!\n", asked);
    return 0;
  }
  return tw_status_parse(pid, lines, read_command_line, desc);
}

void tw_process_check_status(int pid, tw_process_desc* desc) {
  tw_process_read_status(pid, desc);
}
