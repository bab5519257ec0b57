#include "table_check.h"

#include <stdlib.h>
#include <string.h>

#include <set>

#include "inspect/status.h"
#include "platform/directory.h"
#include "platform/proc_root.h"
#include "proctable/scan.h"

namespace {

std::set<uint32_t> watched_pids() {
  std::set<uint32_t> pids;
  Directory directory(tw_proc_root());
  for (tw_dirent entry; directory.next(&entry);) {
    const auto pid = static_cast<uint32_t>(strtoul(entry.name, nullptr, 10));
    if (pid >= TW_FIRST_TRACKED_PID) {
      pids.insert(pid);
    }
  }
  return pids;
}

}  // namespace

std::string table_faults(const tw_process_list& list) {
  std::string faults;
  std::set<uint32_t> missed = watched_pids();
  uint32_t linked = 0;
  for (const auto* entry = list.head; entry != nullptr && linked <= list.count;
       entry = entry->next, ++linked) {
    const std::string pid = std::to_string(entry->pid);
    if (entry != &list.entries[entry->pid] ||
        (entry->next != nullptr && entry->next->prev != entry)) {
      faults += " badly linked: " + pid;
    }
    if (missed.erase(entry->pid) == 0) {
      faults += " not there or twice: " + pid;
      continue;
    }
    tw_process_desc now = {};
    tw_process_check_status(static_cast<int>(entry->pid), &now);
    if (strcmp(now.name, entry->desc.name) != 0) {
      faults += " another name: " + pid;
    }
  }
  if (linked != list.count) {
    faults += " a wrong count: " + std::to_string(list.count);
  }
  for (const uint32_t pid : missed) {
    faults += " missed: " + std::to_string(pid);
  }
  return faults;
}
