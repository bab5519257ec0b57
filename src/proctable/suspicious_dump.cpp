#include "proctable/suspicious_dump.h"

#include "report/reporter.h"

namespace {

constexpr uint64_t kLargeResidentKb = 204800;
constexpr int32_t kManyThreads = 50;
constexpr int32_t kManyOpenFiles = 200;
constexpr int32_t kFirstListedParent = 3;

bool is_suspicious(const tw_process_desc& desc) {
  return desc.vm_rss_kb > kLargeResidentKb || desc.threads > kManyThreads ||
         desc.open_files > kManyOpenFiles || desc.state == 'Z' || desc.state == 'D';
}

}  // namespace

void tw_process_list_dump(tw_process_list* list) {
  TW_REPORT("-> Dump parts of %d processes:\n", static_cast<int>(list->count));
  int index = 0;
  for (const tw_process_entry* entry = list->head; entry != nullptr; entry = entry->next, ++index) {
    const tw_process_desc& desc = entry->desc;
    if (desc.ppid < kFirstListedParent || !is_suspicious(desc)) {
      continue;
    }
    TW_REPORT("%6d %6lu %16s [%c] : rss total [%7lu/%7lu], threads [%u], openfils [%u/%u]\n", index,
              static_cast<unsigned long>(entry->pid), desc.name, desc.state,
              static_cast<unsigned long>(desc.vm_rss_kb),
              static_cast<unsigned long>(desc.vm_hwm_kb), static_cast<unsigned>(desc.threads),
              static_cast<unsigned>(desc.open_files), static_cast<unsigned>(desc.fd_size));
  }
}
