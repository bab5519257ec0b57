#include "inspect/open_files.h"

#include <errno.h>
#include <string.h>
#include <unistd.h>

#include "platform/directory.h"
#include "platform/proc_root.h"
#include "report/log.h"
#include "report/reporter.h"

namespace {

constexpr int32_t kListedAbove = 10;

void count_target(const Directory& directory, const char* name, StringCounter* counter) {
  // readlink writes no terminator, and cuts what is longer.
  char target[256];
  const ssize_t length = ::readlinkat(directory.fd(), name, target, sizeof(target));
  if (length >= 0) {
    counter->add(tw_open_file_kind({target, static_cast<size_t>(length)}));
  }
}

// False, with nothing changed, when the directory cannot be opened.
bool walk(unsigned pid, tw_process_desc* desc, StringCounter* counter) {
  char path[TW_PATH_SIZE];
  tw_proc_path(path, "/%u/fd", pid);
  Directory directory(path);
  if (!directory.ok()) {
    if (errno != EACCES) {
      TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's fd dir: %s\n", pid, strerror(errno));
    }
    return false;
  }
  if (counter != nullptr) {
    counter->clear();
  }
  if (desc != nullptr) {
    desc->open_files = 0;
  }
  tw_dirent entry;
  while (directory.next(&entry)) {
    if (entry.type != DT_LNK) {
      continue;
    }
    if (desc != nullptr) {
      ++desc->open_files;
    }
    if (counter != nullptr) {
      count_target(directory, entry.name, counter);
    }
  }
  return true;
}

void report_kinds(unsigned pid, const StringCounter& counter) {
  tw_reporter().report(1, "Dump openfiles' map of proc %u, %u kinds of files\n", pid,
                       static_cast<unsigned>(counter.size()));
  tw_reporter().report(1, "And, only the file opened more than %u will be list:\n",
                       static_cast<unsigned>(kListedAbove));
  for (const auto& [name, count] : counter) {
    if (count > kListedAbove) {
      tw_reporter().report(1, "\t \"%s\": %d\n", name.c_str(), count);
    }
  }
}

}  // namespace

void tw_process_check_openfiles(int pid, tw_process_desc* desc, StringCounter* counter) {
  if (walk(static_cast<unsigned>(pid), desc, counter) && counter != nullptr) {
    report_kinds(static_cast<unsigned>(pid), *counter);
  }
}

std::string_view tw_open_file_kind(std::string_view target) {
  if (target.starts_with("socket:")) {
    return "<SOCKET>";
  }
  if (target.starts_with("pipe:")) {
    return "<PIPE>";
  }
  if (target.starts_with("/dev/ashmem")) {
    return "<ASHMEM>";
  }
  return target;
}
