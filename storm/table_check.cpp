#include "table_check.h"

#include <stdlib.h>
#include <string.h>

#include <map>

#include "inspect/status.h"
#include "platform/directory.h"
#include "platform/proc_root.h"
#include "proctable/scan.h"

namespace {

// By pid, the processes that are looked at.
std::map<uint32_t, tw_process_desc> present(std::optional<int> parent) {
  std::map<uint32_t, tw_process_desc> found;
  Directory directory(tw_proc_root());
  for (tw_dirent entry; directory.next(&entry);) {
    const auto pid = static_cast<uint32_t>(strtoul(entry.name, nullptr, 10));
    tw_process_desc desc = {};
    if (pid >= TW_FIRST_TRACKED_PID) {
      tw_process_check_status(static_cast<int>(pid), &desc);
      if (!parent || desc.ppid == *parent) {
        found[pid] = desc;
      }
    }
  }
  return found;
}

}  // namespace

std::string table_faults(const tw_process_list& list, std::optional<int> parent) {
  std::string faults;
  std::map<uint32_t, tw_process_desc> missed = present(parent);
  uint32_t linked = 0;
  for (const auto* entry = list.head; entry != nullptr && linked <= list.count;
       entry = entry->next, ++linked) {
    const std::string pid = std::to_string(entry->pid);
    if (entry != &list.entries[entry->pid] ||
        (entry->next != nullptr && entry->next->prev != entry)) {
      faults += " badly linked: " + pid;
    }
    const auto there = missed.extract(entry->pid);
    if (there.empty()) {
      if (!parent || entry->desc.ppid == *parent) {
        faults += " not there or twice: " + pid;
      }
    } else if (strcmp(there.mapped().name, entry->desc.name) != 0) {
      faults += " another name: " + pid;
    }
  }
  if (linked != list.count) {
    faults += " a wrong count: " + std::to_string(list.count);
  }
  for (const auto& [pid, desc] : missed) {
    faults += " missed: " + std::to_string(pid);
  }
  return faults;
}
