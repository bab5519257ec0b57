#include "inspect/threads.h"

#include <fcntl.h>
#include <stdio.h>

#include "inspect/inventory_budget.h"
#include "inspect/thread_family.h"
#include "platform/directory.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "platform/small_file.h"
#include "report/log.h"
#include "report/reporter.h"

namespace {

void count_thread(const Directory& tasks, const char* thread, StringCounter* counter) {
  char path[sizeof(dirent::d_name) + sizeof("/comm")];
  snprintf(path, sizeof(path), "%s/comm", thread);
  char name[256];
  const ssize_t length = tw_read_small_file(tasks.fd(), path, O_NOFOLLOW, name, sizeof(name));
  if (length > 0) {
    // The last byte is the line feed that ends the file; a NUL ends the name before it.
    name[length - 1] = '\0';
    tw_count_name(counter, tw_thread_family(name));
  } else {
    tw_count_name(counter, "<UNNAMED THREAD>");
  }
}

// False, with nothing changed, when the directory cannot be opened.
bool walk(unsigned pid, StringCounter* counter) {
  const ReadingMark mark(TASKWARDEN_READS_THREADS, pid);
  Directory directory(ProcPath(pid, "/task").c_str());
  if (!directory.ok()) {
    TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's task dir!!\n", pid);
    return false;
  }
  if (counter == nullptr) {
    return true;
  }
  counter->clear();
  tw_dirent entry;
  while (directory.next(&entry)) {
    if (entry.type == DT_DIR && entry.name[0] >= '0' && entry.name[0] <= '9') {
      count_thread(directory, entry.name, counter);
    }
  }
  return true;
}

void report_kinds(unsigned pid, const StringCounter& counter) {
  TW_REPORT("Dump threads' map of proc %u, %u kinds of threads\n", pid,
            static_cast<unsigned>(counter.size()));
  TW_REPORT("And, only the thread which is more than %u will be list:\n",
            static_cast<unsigned>(TW_THREADS_LISTED_ABOVE));
  for (const auto& [name, count] : counter) {
    if (count > TW_THREADS_LISTED_ABOVE) {
      TW_REPORT("\t \"%16s\": %d\n", name.c_str(), count);
    }
  }
}

}  // namespace

void tw_process_check_threads(int pid, StringCounter* counter) {
  if (walk(static_cast<unsigned>(pid), counter) && counter != nullptr) {
    report_kinds(static_cast<unsigned>(pid), *counter);
  }
}

std::string_view tw_thread_family(std::string_view name) {
  constexpr struct {
    std::string_view prefix;
    std::string_view family;
  } kFamilies[] = {
      {"Binder:", "<BINDER THREAD>"},
      {"HwBinder:", "<HWBINDER THREAD>"},
      {"Thread-", "<THREAD>"},
      {"POSIX timer", "<POSIX TIMER>"},
  };
  for (const auto& row : kFamilies) {
    if (name.starts_with(row.prefix)) {
      return row.family;
    }
  }
  return name;
}
