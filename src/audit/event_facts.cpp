#include "audit/event_facts.h"

#include <algorithm>

#include "inspect/system/meminfo_record.h"

namespace {

using D = tw_process_desc;

constexpr uint64_t kResidentStepKb = 10240;
constexpr uint64_t kMappedStepKb = 51200;

// A kind of event whose constant is its name.
#define KIND(id, about, what, unit, rule, has_record) \
  { sizeof(taskwarden_event_kind), id, TASKWARDEN_ABOUT_##about, #id, what, unit, rule, has_record }

// A size of what a process has mapped.
constexpr GrowthCheck mapped(uint64_t D::*size) {
  return {size, size, size, Growth::kByHalfOrStep, kMappedStepKb, true};
}
constexpr GrowthCheck counted(int32_t D::*count, Growth growth) {
  return {count, count, count, growth};
}

template <uint32_t tw_process_list::*count>
int32_t of_table(const void* list) {
  return static_cast<int32_t>(static_cast<const tw_process_list*>(list)->*count);
}
template <int32_t tw_meminfo_t::*figure>
int32_t of_memory(const void* meminfo) {
  return static_cast<const tw_meminfo_t*>(meminfo)->*figure;
}

constexpr char kMappedRule[] =
    "more than 1.5 times the level, or more than 50 MiB above it; of interesting processes";
constexpr char kRankRule[] = "a process came into the five largest of its class";

constexpr EventFacts kFacts[] = {
    {.kind = KIND(Event_ResidentSize, PROCESS, "resident size", "kB",
                  "more than 1.5 times the peak, or more than 10 MiB above it", 1),
     .wording = "RSS increasement, peak",
     // Measured against the recorded high-water mark, which then becomes the kernel's present one.
     .growth = {&D::vm_rss_kb, &D::vm_hwm_kb, &D::vm_hwm_kb, Growth::kByHalfOrStep,
                kResidentStepKb},
     .reaction = Reaction::kDivisions,
     .headline = "RSS is too large",
     .sender = Sender::kHandler},
    {.kind = KIND(Event_VssHeap, PROCESS, "mapped native heap", "kB", kMappedRule, 1),
     .wording = "VSS \"HEAP\" increasement, peak",
     .growth = mapped(&D::vss_heap_kb),
     .sender = Sender::kHub},
    {.kind = KIND(Event_VssDalvik, PROCESS, "mapped managed heap", "kB", kMappedRule, 1),
     .wording = "VSS \"DALVIK\" increasement, peak",
     .growth = mapped(&D::vss_dalvik_kb),
     .sender = Sender::kHub},
    {.kind = KIND(Event_VssAshmem, PROCESS, "mapped shared memory", "kB", kMappedRule, 0),
     .wording = "VSS \"ASHMEM\" increasement, peak",
     .growth = mapped(&D::vss_ashmem_kb)},
    {.kind = KIND(Event_VssKgsl, PROCESS, "mapped graphics memory", "kB", kMappedRule, 1),
     .wording = "VSS \"KGSL\" increasement, peak",
     .growth = mapped(&D::vss_kgsl_kb),
     .sender = Sender::kHub},
    {.kind = KIND(Event_VssDmaBuf, PROCESS, "mapped DMA buffers", "kB", kMappedRule, 1),
     .wording = "VSS \"DMABUF\" increasement, peak",
     .growth = mapped(&D::vss_dmabuf_kb),
     .sender = Sender::kHub},
    {.kind = KIND(Event_ThreadAmount, PROCESS, "threads", "threads",
                  "more than 1.5 times the level", 1),
     .wording = "running threads amount,",
     .growth = counted(&D::threads, Growth::kByHalf),
     .reaction = Reaction::kThreads,
     .headline = "Too many threads",
     .sender = Sender::kHandler},
    {.kind = KIND(Event_OpenFileAmount, PROCESS, "open files", "files",
                  "more than 1.5 times the level", 1),
     .wording = "open files amount,",
     .growth = counted(&D::open_files, Growth::kByHalf),
     .reaction = Reaction::kOpenFiles,
     .headline = "Too many open files",
     .sender = Sender::kHandler},
    {.kind = KIND(Event_OpenFileFDSize, PROCESS, "size of the descriptor table", "files",
                  "above the level", 0),
     .wording = "open files FDSize,",
     .growth = counted(&D::fd_size, Growth::kAtAll),
     .reaction = Reaction::kHeadline,
     .headline = "Too large \"FDSize\""},

    {.kind = KIND(Event_ProcRuntimeAmount, PROCESSES, "processes that a zygote started",
                  "processes", "at least 501", 0),
     .level = {.first = {"runtime tasks,", "tasks", of_table<&tw_process_list::runtime_count>},
               .limit = 501},
     .reaction = Reaction::kCounts},
    {.kind = KIND(Event_ProcNativeAmount, PROCESSES, "processes that pid 1 started", "processes",
                  "at least 501", 0),
     .level = {.first = {"native tasks,", "tasks", of_table<&tw_process_list::native_count>},
               .limit = 501},
     .reaction = Reaction::kCounts},
    {.kind =
         KIND(Event_ProcKthreadAmount, PROCESSES, "kernel tasks", "processes", "at least 1001", 0),
     .level = {.first = {"kernel tasks,", "tasks", of_table<&tw_process_list::kthread_count>},
               .limit = 1001},
     .reaction = Reaction::kCounts},
    {.kind = KIND(Event_ProcTotalAmount, PROCESSES, "processes in all", "processes",
                  "at least 2001, and no single kind is over its limit", 0),
     .level = {.first = {"total tasks,", "tasks", of_table<&tw_process_list::count>},
               .limit = 2001,
               .alone = true},
     .reaction = Reaction::kCounts},

    {.kind = KIND(AuditEvent_LowOnMemory, MEMORY, "free and available memory", "kB",
                  "1 GiB or less together", 0),
     .level = {.first = {"mem-free", "mem_free_kb", of_memory<&tw_meminfo_t::mem_free_kb>},
               .second = {"mem-avail", "mem_available_kb",
                          of_memory<&tw_meminfo_t::mem_available_kb>},
               .limit = 1048576,
               .at_most = true}},
    {.kind = KIND(AuditEvent_SlabUnreclaimSize, MEMORY, "kernel memory that cannot be reclaimed",
                  "kB", "2 GiB or more", 0),
     .level = {.first = {"slab unreclaim", "slab_unreclaimable_kb",
                         of_memory<&tw_meminfo_t::sunreclaim_kb>},
               .limit = 2097152},
     .reaction = Reaction::kSlabCensus},

    {.kind = KIND(Event_ProcRankRuntime, PROCESSES, "largest processes that a zygote started", "",
                  kRankRule, 0),
     .reaction = Reaction::kRuntimeRank},
    {.kind =
         KIND(Event_ProcRankNative, PROCESSES, "largest of all other processes", "", kRankRule, 0),
     .reaction = Reaction::kNativeRank},
    {.kind = KIND(Event_ProcCreated, PROCESS, "a new process", "", "a host says so", 0)},
    {.kind = KIND(Event_ProcExited, PROCESS, "the end of a process", "",
                  "it was in the table and is gone", 0),
     .reaction = Reaction::kReleaseBlocks},
    {.kind = KIND(Event_ProcRenamed, PROCESS, "a change of name", "",
                  "a pid in the table goes by another name", 0),
     .reaction = Reaction::kReleaseBlocks},
};

#undef KIND

}  // namespace

std::span<const EventFacts> tw_event_facts() {
  return kFacts;
}

const EventFacts* tw_find_event_facts(int32_t id) {
  const auto* const found =
      std::find_if(std::begin(kFacts), std::end(kFacts),
                   [id](const EventFacts& facts) { return facts.id() == id; });
  return found != std::end(kFacts) ? found : nullptr;
}

const taskwarden_event_kind* taskwarden_event_kind_at(size_t index) {
  return index < std::size(kFacts) ? &kFacts[index].kind : nullptr;
}
