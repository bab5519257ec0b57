#include "inspect/status.h"

#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include "inspect/parse_pair.h"
#include "platform/proc_root.h"
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
  snprintf(desc->name, sizeof(desc->name), "%s#%u", base, static_cast<unsigned>(pid));
}

void note_zygote(int pid, const tw_process_desc& desc) {
  if (desc.ppid != 1) {
    return;
  }
  if (line_has_key(desc.name, "zygote64")) {
    pid_of_zygote64 = pid;
  } else if (line_has_key(desc.name, "zygote")) {
    pid_of_zygote = pid;
  }
}

// Sizes come as decimal text of 32 bits and are widened with their sign.
uint64_t to_kb(const char* value) {
  return static_cast<uint64_t>(static_cast<int64_t>(atoi(value)));
}

enum class Key { kName, kState, kPid, kPPid, kFdSize, kVmHwm, kVmRss, kThreads };

// In the order in which a line is held against them. What is compared is the name with its colon.
constexpr struct {
  Key key;
  std::string_view text;
} kKeys[] = {
    {Key::kName, "Name:"},   {Key::kState, "State:"},     {Key::kPid, "Pid:"},
    {Key::kPPid, "PPid:"},   {Key::kFdSize, "FDSize:"},   {Key::kVmHwm, "VmHWM:"},
    {Key::kVmRss, "VmRSS:"}, {Key::kThreads, "Threads:"},
};

}  // namespace

void tw_status_parse(int pid, LineReader& lines, CommandLineReader read, tw_process_desc* desc) {
  const auto asked = static_cast<unsigned>(pid);
  for (std::string_view text; !(text = lines.next()).empty();) {
    const auto* match = std::begin(kKeys);
    while (match != std::end(kKeys) && !line_has_key(text, match->text)) {
      ++match;
    }
    if (match == std::end(kKeys)) {
      continue;
    }
    char* const line = lines.c_str();
    const int position = parse_pair(line);
    if (position < 0) {
      const auto bare = static_cast<int>(match->text.size() - 1);
      TW_LOG(TW_TAG_STATS, ">> failed to get proc %u's %.*s!!\n", asked, bare, match->text.data());
      return;
    }
    const char* value = line + position;
    switch (match->key) {
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
