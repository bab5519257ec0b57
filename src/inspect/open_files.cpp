#include "inspect/open_files.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
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

Directory open_directory(unsigned pid) {
  return Directory(ProcPath(pid, "/fd").c_str());
}

// Whether the directory just opened may be read; a word in the log where that is worth one.
bool is_open(const Directory& directory, unsigned pid) {
  if (!directory.ok() && errno != EACCES) {
    TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's fd dir: %s\n", pid, strerror(errno));
  }
  return directory.ok();
}

void walk(Directory& directory, tw_process_desc* desc, StringCounter* counter) {
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
}

struct DirectorySize {
  dev_t device;
  int64_t size;  // 0 when it cannot be told

  bool operator==(const DirectorySize&) const = default;
};

DirectorySize size_of(const Directory& directory) {
  struct stat status;
  return ::fstat(directory.fd(), &status) == 0 ? DirectorySize{status.st_dev, status.st_size}
                                               : DirectorySize{};
}

// The file system whose descriptor directories were found to have their count as their size.
dev_t counting_device = 0;

// Whether a listing between the readings `before` and `after` of the size found all that is in it,
// so that the next visit may go by the size.
bool is_remarkable(const DirectorySize& before, const DirectorySize& after, int32_t listed) {
  if (!(before == after) || before.size <= 0 || before.size > INT32_MAX) {
    return false;
  }
  if (before.size == listed) {
    counting_device = before.device;
  } else if (before.size < listed && before.device == counting_device) {
    counting_device = 0;
  }
  return before.device == counting_device;
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
  const auto asked = static_cast<unsigned>(pid);
  Directory directory = open_directory(asked);
  if (!is_open(directory, asked)) {
    return;
  }
  walk(directory, desc, counter);
  if (counter != nullptr) {
    report_kinds(asked, *counter);
  }
}

void tw_process_recount_openfiles(int pid, tw_process_desc* desc, tw_fd_listing* last) {
  const auto asked = static_cast<unsigned>(pid);
  Directory directory = open_directory(asked);
  if (!is_open(directory, asked)) {
    return;
  }
  const DirectorySize before = size_of(directory);
  if (last->size != 0 && last->size == before.size && ++last->visits < TW_FD_LISTING_RHYTHM) {
    return;
  }
  // Processes first met together are not all listed again in the same pass.
  const uint32_t visits = last->size != 0 ? 0 : asked % TW_FD_LISTING_RHYTHM;
  walk(directory, desc, nullptr);
  const bool remarkable =
      !directory.failed() && is_remarkable(before, size_of(directory), desc->open_files);
  *last = remarkable ? tw_fd_listing{static_cast<uint32_t>(before.size), visits} : tw_fd_listing{};
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
