#include "inspect/threads.h"

#include <string.h>

#include <algorithm>
#include <string>

#include "platform/android_base.h"
#include "platform/directory.h"
#include "platform/proc_root.h"
#include "report/log.h"
#include "report/reporter.h"

namespace {

constexpr int32_t kListedAbove = 1;

void count_thread(const char* task_path, const char* thread, StringCounter* counter) {
  std::string content;
  char name[256] = "<UNNAMED THREAD>";
  if (android::base::ReadFileToString(android::base::StringPrintf("%s/%s/comm", task_path, thread),
                                      &content, false) &&
      !content.empty()) {
    // The last byte is the line feed that ends the file.
    const size_t length = std::min(content.size(), sizeof(name)) - 1;
    memcpy(name, content.data(), length);
    name[length] = '\0';
  }
  counter->add(tw_thread_family(name));
}

// False, with nothing changed, when the directory cannot be opened.
bool walk(unsigned pid, StringCounter* counter) {
  char path[TW_PATH_SIZE];
  tw_proc_path(path, "/%u/task", pid);
  Directory directory(path);
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
      count_thread(path, entry.name, counter);
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
