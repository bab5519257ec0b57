#include "audit/proc_entry_event_hub.h"

#include "audit/event_block.h"
#include "proctable/process_records.h"
#include "report/event_socket.h"
#include "report/reporter.h"

namespace {

constexpr uint64_t kResidentStepKb = 10240;
constexpr uint64_t kMappedStepKb = 51200;

// One and a half times, or more than `step` above.
bool has_grown(uint64_t current, uint64_t reference, uint64_t step) {
  return current * 2 > reference * 3 || current > reference + step;
}

using Raised = std::vector<int32_t>;

// Measured against the recorded high-water mark, and then raised to the kernel's present one.
void check_resident_size(tw_process_entry& entry, Raised* raised) {
  const tw_process_desc& desc = entry.desc;
  uint64_t& reference = entry.baseline.vm_hwm_kb;
  if (!has_grown(desc.vm_rss_kb, reference, kResidentStepKb)) {
    return;
  }
  raised->push_back(Event_ResidentSize);
  tw_report_event_head("Event_ResidentSize");
  tw_reporter().report(1, "-> audit evnet by proc %u \"%s\": RSS increasement, peak %u -> %u\n",
                       entry.pid, desc.name, static_cast<uint32_t>(reference),
                       static_cast<uint32_t>(desc.vm_rss_kb));
  reference = desc.vm_hwm_kb;
}

struct MappedCheck {
  int32_t id;
  const char* event;
  const char* division;
  uint64_t tw_process_desc::*size;
  bool sends_record;
};

constexpr MappedCheck kMappedChecks[] = {
    {Event_VssHeap, "Event_VssHeap", "HEAP", &tw_process_desc::vss_heap_kb, true},
    {Event_VssDalvik, "Event_VssDalvik", "DALVIK", &tw_process_desc::vss_dalvik_kb, true},
    {Event_VssAshmem, "Event_VssAshmem", "ASHMEM", &tw_process_desc::vss_ashmem_kb, false},
    {Event_VssKgsl, "Event_VssKgsl", "KGSL", &tw_process_desc::vss_kgsl_kb, true},
    {Event_VssDmaBuf, "Event_VssDmaBuf", "DMABUF", &tw_process_desc::vss_dmabuf_kb, true},
};

void check_mapped_size(tw_process_entry& entry, const MappedCheck& check, Raised* raised) {
  const uint64_t current = entry.desc.*check.size;
  uint64_t& reference = entry.baseline.*check.size;
  if (!has_grown(current, reference, kMappedStepKb)) {
    return;
  }
  if (reference != 0) {
    raised->push_back(check.id);
    tw_report_event_head(check.event);
    tw_reporter().report(
        1, "-> audit evnet by proc %u \"%s\": VSS \"%s\" increasement, peak %u -> %u\n", entry.pid,
        entry.desc.name, check.division, static_cast<uint32_t>(reference),
        static_cast<uint32_t>(current));
    if (check.sends_record) {
      reportEvent(static_cast<int32_t>(entry.pid), static_cast<int64_t>(current), check.event,
                  entry.desc.name, "");
    }
  }
  reference = current;
}

struct CountCheck {
  int32_t id;
  const char* event;
  const char* what;
  int32_t tw_process_desc::*count;
  bool any_growth;  // instead of one and a half times
};

constexpr CountCheck kCountChecks[] = {
    {Event_ThreadAmount, "Event_ThreadAmount", "running threads amount", &tw_process_desc::threads,
     false},
    {Event_OpenFileAmount, "Event_OpenFileAmount", "open files amount",
     &tw_process_desc::open_files, false},
    {Event_OpenFileFDSize, "Event_OpenFileFDSize", "open files FDSize", &tw_process_desc::fd_size,
     true},
};

void check_count(tw_process_entry& entry, const CountCheck& check, Raised* raised) {
  const int32_t current = entry.desc.*check.count;
  int32_t& reference = entry.baseline.*check.count;
  // Widened: the file's text may hold any 32-bit number, and three times it must not overflow.
  const bool grown =
      check.any_growth ? current > reference : int64_t{current} * 2 > int64_t{reference} * 3;
  if (!grown) {
    return;
  }
  raised->push_back(check.id);
  tw_report_event_head(check.event);
  tw_reporter().report(1, "-> audit evnet by proc %u \"%s\": %s, %u -> %u\n", entry.pid,
                       entry.desc.name, check.what, static_cast<uint32_t>(reference),
                       static_cast<uint32_t>(current));
  reference = current;
}

}  // namespace

std::vector<int32_t> ProcEntryEventHub::retrieve(void* data) {
  auto& entry = *static_cast<tw_process_entry*>(data);
  Raised raised;
  check_resident_size(entry, &raised);
  for (const MappedCheck& check : kMappedChecks) {
    check_mapped_size(entry, check, &raised);
  }
  for (const CountCheck& check : kCountChecks) {
    check_count(entry, check, &raised);
  }
  return raised;
}
