#include "inspect/threads.h"

#include <fcntl.h>
#include <stdio.h>

#include "platform/directory.h"
#include "platform/proc_root.h"
#include "platform/small_file.h"
#include "report/log.h"
#include "report/reporter.h"

namespace {

constexpr int32_t kListedAbove = 1;

void count_thread(const Directory& tasks, const char* thread, StringCounter* counter) {
  char path[sizeof(dirent::d_name) + sizeof("/comm")];
  snprintf(path, sizeof(path), "%s/comm", thread);
  char name[256];
  const ssize_t length = tw_read_small_file(tasks.fd(), path, O_NOFOLLOW, name, sizeof(name));
  if (length > 0) {
    // The last byte is the line feed that ends the file; a NUL ends the name before it.
    name[length - 1] = '\0';
    counter->add(tw_thread_family(name));
  } else {
    counter->add("<UNNAMED THREAD>");
  }
}

// False, with nothing changed, when the directory cannot be opened.
bool walk(unsigned pid, StringCounter* counter) {
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
  tw_reporter().report(1, "Dump threads' map of proc %u, %u kinds of threads\n", pid,
                       static_cast<unsigned>(counter.size()));
  tw_reporter().report(1, "And, only the thread which is more than %u will be list:\n",
                       static_cast<unsigned>(kListedAbove));
  for (const auto& [name, count] : counter) {
    if (count > kListedAbove) {
      tw_reporter().report(1, "\t \"%16s\": %d\n", name.c_str(), count);
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
