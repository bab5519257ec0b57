#include "audit/meminfo_event_hub.h"

#include "audit/event_block.h"
#include "inspect/system/meminfo_record.h"
#include "report/reporter.h"

namespace {

constexpr int32_t kLowMemoryKb = 1048576;  // inclusive
constexpr int32_t kLargeSlabKb = 2097152;  // inclusive

}  // namespace

std::vector<int32_t> MemInfoEventHub::retrieve(void* data) {
  const auto& meminfo = *static_cast<const tw_meminfo_t*>(data);
  std::vector<int32_t> raised;
  // Summed in 64 bits: on a machine with more than 1 TiB free the 32-bit sum would overflow.
  if (int64_t{meminfo.mem_free_kb} + meminfo.mem_available_kb <= kLowMemoryKb) {
    tw_report_event_head("AuditEvent_LowOnMemory");
    tw_reporter().report(1, "-> audit evnet: mem-free %u, mem-avail %u\n",
                         static_cast<unsigned>(meminfo.mem_free_kb),
                         static_cast<unsigned>(meminfo.mem_available_kb));
    raised.push_back(AuditEvent_LowOnMemory);
  }
  if (meminfo.sunreclaim_kb >= kLargeSlabKb) {
    tw_report_event_head("AuditEvent_SlabUnreclaimSize");
    tw_reporter().report(1, "-> audit evnet: slab unreclaim %u\n",
                         static_cast<unsigned>(meminfo.sunreclaim_kb));
    raised.push_back(AuditEvent_SlabUnreclaimSize);
  }
  return raised;
}
