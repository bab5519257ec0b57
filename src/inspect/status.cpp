#include "inspect/status.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <stdlib.h>
#include <string.h>

#include "inspect/parse_pair.h"
#include "platform/proc_root.h"
#include "platform/text_field.h"
#include "proctable/zygote.h"
#include "report/log.h"

namespace {

constexpr size_t kLongestBaseName = 57;

bool read_command_line(int pid, std::string* content) {
  return android::base::ReadFileToString(
      android::base::StringPrintf("%s/%u/cmdline", tw_proc_root(), static_cast<unsigned>(pid)),
      content, false);
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

// Sizes come as decimal text of 32 bits and are widened with their sign.
uint64_t to_kb(const char* value) {
  return static_cast<uint64_t>(static_cast<int64_t>(atoi(value)));
}

enum class Key { kNone, kName, kState, kPid, kPPid, kFdSize, kVmHwm, kVmRss, kThreads };

// What is compared is the name with its colon, where the line begins. Most lines are of other keys.
Key key_of(std::string_view line) {
  switch (line[0]) {
    case 'N':
      return line.starts_with("Name:") ? Key::kName : Key::kNone;
    case 'S':
      return line.starts_with("State:") ? Key::kState : Key::kNone;
    case 'P':
      return line.starts_with("Pid:")    ? Key::kPid
             : line.starts_with("PPid:") ? Key::kPPid
                                         : Key::kNone;
    case 'F':
      return line.starts_with("FDSize:") ? Key::kFdSize : Key::kNone;
    case 'V':
      return line.starts_with("VmHWM:")   ? Key::kVmHwm
             : line.starts_with("VmRSS:") ? Key::kVmRss
                                          : Key::kNone;
    case 'T':
      return line.starts_with("Threads:") ? Key::kThreads : Key::kNone;
    default:
      return Key::kNone;
  }
}

}  // namespace

void tw_status_parse(int pid, LineReader& lines, CommandLineReader read, tw_process_desc* desc) {
  const auto asked = static_cast<unsigned>(pid);
  for (std::string_view text; !(text = lines.next()).empty();) {
    const Key key = key_of(text);
    if (key == Key::kNone) {
      continue;
    }
    char* const line = lines.c_str();
    const int position = parse_pair(line);
    if (position < 0) {
      TW_LOG(TW_TAG_STATS, ">> failed to get proc %u's %.*s!!\n", asked,
             static_cast<int>(strcspn(line, ":")), line);
      return;
    }
    const char* value = line + position;
    switch (key) {
      case Key::kNone:
        break;
      case Key::kName:
        set_display_name(pid, value, read, desc);
        break;
      case Key::kState:
        desc->state = value[0];
        break;
      case Key::kPid:
        if (atoi(value) != pid) {
          TW_LOG(TW_TAG_STATS, ">> inconsistent pid: %u, %u\n", asked,
                 static_cast<unsigned>(atoi(value)));
          return;
        }
        break;
      case Key::kPPid:
        desc->ppid = atoi(value);
        note_zygote(pid, *desc);
        break;
      case Key::kFdSize:
        desc->fd_size = atoi(value);
        break;
      case Key::kVmHwm:
        desc->vm_hwm_kb = to_kb(value);
        break;
      case Key::kVmRss:
        desc->vm_rss_kb = to_kb(value);
        break;
      case Key::kThreads:
        desc->threads = atoi(value);
        return;
    }
  }
}

void tw_process_check_status(int pid, tw_process_desc* desc) {
  const auto asked = static_cast<unsigned>(pid);
  LineReader lines = LineReader::open(ProcPath(asked, "/status").c_str());
  if (!lines.ok()) {
    TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's status!!\n", asked);
    return;
  }
  tw_status_parse(pid, lines, read_command_line, desc);
}
