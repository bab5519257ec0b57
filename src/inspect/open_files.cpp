#include "inspect/open_files.h"

#include <errno.h>
#include <string.h>
#include <sys/stat.h>
#include <unistd.h>

#include "inspect/inventory_budget.h"
#include "inspect/open_files_count.h"
#include "platform/directory.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "report/log.h"
#include "report/reporter.h"

namespace {

void count_target(const Directory& directory, const char* name, StringCounter* counter) {
  // readlink writes no terminator, and cuts what is longer.
  char target[256];
  const ssize_t length = ::readlinkat(directory.fd(), name, target, sizeof(target));
  if (length >= 0) {
    tw_count_name(counter, tw_open_file_kind({target, static_cast<size_t>(length)}));
  }
}

// A process's descriptor directory, opened; a word in the log where it cannot be and that is worth
// one.
class DescriptorDirectory : private ReadingMark, public Directory {
 public:
  explicit DescriptorDirectory(unsigned pid)
      : ReadingMark(TASKWARDEN_READS_OPEN_FILES, pid), Directory(ProcPath(pid, "/fd").c_str()) {
    if (!ok() && errno != EACCES) {
      TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's fd dir: %s\n", pid, strerror(errno));
    }
  }
};

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
  TW_REPORT("Dump openfiles' map of proc %u, %u kinds of files\n", pid,
            static_cast<unsigned>(counter.size()));
  TW_REPORT("And, only the file opened more than %u will be list:\n",
            static_cast<unsigned>(TW_OPEN_FILES_LISTED_ABOVE));
  for (const auto& [name, count] : counter) {
    if (count > TW_OPEN_FILES_LISTED_ABOVE) {
      TW_REPORT("\t \"%s\": %d\n", name.c_str(), count);
    }
  }
}

}  // namespace

void tw_process_check_openfiles(int pid, tw_process_desc* desc, StringCounter* counter) {
  const auto asked = static_cast<unsigned>(pid);
  {
    DescriptorDirectory directory(asked);
    if (!directory.ok()) {
      return;
    }
    walk(directory, desc, counter);
  }
  if (counter != nullptr) {
    report_kinds(asked, *counter);
  }
}

bool tw_process_recount_openfiles(int pid, tw_process_desc* desc, tw_fd_listing* last) {
  const auto asked = static_cast<unsigned>(pid);
  DescriptorDirectory directory(asked);
  if (!directory.ok()) {
    return false;
  }
  const DirectorySize before = last != nullptr ? size_of(directory) : DirectorySize{};
  if (last != nullptr && last->size != 0 && last->size == before.size &&
      ++last->visits < TW_FD_LISTING_RHYTHM) {
    desc->open_files = last->count;
    return true;
  }
  walk(directory, desc, nullptr);
  if (last == nullptr) {
    return !directory.failed();
  }
  // Processes first met together are not all listed again in the same pass.
  const uint32_t visits = last->size != 0 ? 0 : asked % TW_FD_LISTING_RHYTHM;
  const bool remarkable =
      !directory.failed() && is_remarkable(before, size_of(directory), desc->open_files);
  *last = remarkable ? tw_fd_listing{static_cast<uint32_t>(before.size), visits, desc->open_files}
                     : tw_fd_listing{};
  return !directory.failed();
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
