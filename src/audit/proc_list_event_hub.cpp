#include "audit/proc_list_event_hub.h"

#include "audit/event_block.h"
#include "proctable/process_records.h"
#include "report/reporter.h"

namespace {

// All inclusive, compared as signed numbers.
constexpr int32_t kManyRuntime = 501;
constexpr int32_t kManyNative = 501;
constexpr int32_t kManyKthreads = 1001;
constexpr int32_t kManyInAll = 2001;

}  // namespace

std::vector<int32_t> ProcListEventHub::retrieve(void* data) {
  const auto& list = *static_cast<const tw_process_list*>(data);
  std::vector<int32_t> raised;
  const auto check = [&raised](uint32_t amount, int32_t limit, int32_t id, const char* event,
                               const char* kind) {
    if (static_cast<int32_t>(amount) >= limit) {
      tw_report_event_head(event);
      tw_reporter().report(1, "-> audit evnet: %s tasks, %u\n", kind, amount);
      raised.push_back(id);
    }
  };
  check(list.runtime_count, kManyRuntime, Event_ProcRuntimeAmount, "Event_ProcRuntimeAmount",
        "runtime");
  check(list.native_count, kManyNative, Event_ProcNativeAmount, "Event_ProcNativeAmount", "native");
  check(list.kthread_count, kManyKthreads, Event_ProcKthreadAmount, "Event_ProcKthreadAmount",
        "kernel");
  if (raised.empty()) {
    check(list.count, kManyInAll, Event_ProcTotalAmount, "Event_ProcTotalAmount", "total");
  }
  return raised;
}
