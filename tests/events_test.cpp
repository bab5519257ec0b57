// The event framework: hubs at their limits, routing, collectors and the handler.
#include <gtest/gtest.h>

#include <cstring>
#include <type_traits>

#include "audit/audit_event_handler.h"
#include "audit/audit_event_manager.h"
#include "audit/audit_initialize.h"
#include "audit/entry_blocks.h"
#include "audit/poll.h"
#include "audit/process_collector.h"
#include "inspect/system/meminfo_record.h"
#include "interest/interest_list.h"
#include "proctable/zygote.h"
#include "support/captured_output.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"
#include "support/record_listener.h"

// The build routes the library's calls of tw_allocate here.
static bool no_blocks = false;
void* real_allocate(uint64_t size) __asm__("__real__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) __asm__("__wrap__Z11tw_allocatem");
void* wrapped_allocate(uint64_t size) {
  return no_blocks ? nullptr : real_allocate(size);
}

namespace {

using std::string_literals::operator""s;
using Ids = std::vector<int32_t>;

std::string block(const std::string& event, const std::string& detail) {
  return "\n-------------------------------------------------------\n" + event +
         "\n-> audit evnet" + detail + "\n";
}

// Runs the hub of a source and returns what it raised.
Ids poll(int32_t source, void* data) {
  fresh_table();
  return AuditEventManager::getInstance()->hubs.at(source)->retrieve(data);
}

TEST(Hubs, MemoryAndProcessCountLimits) {
  CapturedOutput output;
  const auto memory = [](int32_t free, int32_t available, int32_t slab) {
    tw_meminfo_t figures = {0, free, available, slab};
    return poll(AUDIT_SOURCE_MEMINFO, &figures);
  };
  EXPECT_EQ(memory(524288, 524289, 2097151), Ids{});
  EXPECT_EQ(memory(2000000000, 2000000000, 0), Ids{});
  EXPECT_EQ(output.report(), "");
  EXPECT_EQ(memory(524288, 524288, 2097152), (Ids{2048, 2049}));
  EXPECT_EQ(output.report(),
            block("AuditEvent_LowOnMemory", ": mem-free 524288, mem-avail 524288") +
                block("AuditEvent_SlabUnreclaimSize", ": slab unreclaim 2097152"));

  const auto counts = [](uint32_t all, uint32_t native, uint32_t runtime, uint32_t kthreads) {
    tw_process_list list = {nullptr, all, 0, native, runtime, kthreads, nullptr, nullptr, nullptr};
    return poll(AUDIT_SOURCE_PROCLIST, &list);
  };
  EXPECT_EQ(counts(5000, 501, 501, 1000), (Ids{259, 258}));
  EXPECT_EQ(output.report(), block("Event_ProcRuntimeAmount", ": runtime tasks, 501") +
                                 block("Event_ProcNativeAmount", ": native tasks, 501"));
  EXPECT_EQ(counts(2000, 500, 500, 1000), Ids{});
  EXPECT_EQ(counts(2001, 500, 500, 1000), Ids{256});
  EXPECT_EQ(output.report(), block("Event_ProcTotalAmount", ": total tasks, 2001"));
  EXPECT_EQ(counts(9000, 501, 501, 1001), (Ids{259, 258, 257}));
}

class Levels : public testing::Test {
 protected:
  using D = tw_process_desc;
  // At `level`, `quiet` is the most that raises nothing, and one more raises `id`. The level kept
  // is in another field than the size for the resident one only.
  template <typename T>
  void check(int32_t id, const std::string& event, const std::string& what, T D::*size,
             std::type_identity_t<T> level, std::type_identity_t<T> quiet, T D::*kept = nullptr) {
    SCOPED_TRACE(event);
    CapturedOutput output;
    tw_process_entry entry = {};
    entry.pid = 7;
    strcpy(entry.desc.name, "p#7");
    if (kept == nullptr) kept = size;
    entry.desc.*kept = 777;
    entry.desc.*size = quiet;
    entry.baseline.*kept = level;
    EXPECT_EQ(poll(AUDIT_SOURCE_PROCENTRY, &entry), Ids{});
    EXPECT_EQ(entry.baseline.*kept, level);
    entry.desc.*size += 1;
    EXPECT_EQ(poll(AUDIT_SOURCE_PROCENTRY, &entry), Ids{id});
    EXPECT_EQ(entry.baseline.*kept, entry.desc.*kept);
    const std::string shown = std::to_string(static_cast<uint32_t>(entry.desc.*size));
    EXPECT_EQ(output.report(), block(event, " by proc 7 \"p#7\": " + what + " " +
                                                std::to_string(level) + " -> " + shown));
    const bool sent = id >= 1792 && id != 1794;
    EXPECT_EQ(listener.next(0),
              sent ? "7@@" + shown + "@@" + event + "@@p#7@@" + '\0' : "(nothing)");
    entry.baseline.*kept = 0;  // the first mapped size seen is only kept
    EXPECT_EQ(poll(AUDIT_SOURCE_PROCENTRY, &entry), id >= 1792 ? Ids{} : Ids{id});
    EXPECT_EQ(entry.baseline.*kept, entry.desc.*kept);
    all.desc.*size = 9;
    all.baseline.*size = 1;
  }
  RecordListener listener;
  tw_process_entry all = {};
};

TEST_F(Levels, AtEachLimitAndInOrder) {
  const std::string rss = "RSS increasement, peak";
  const auto vss = [](const char* name) { return "VSS \""s + name + "\" increasement, peak"; };
  check(1536, "Event_ResidentSize", rss, &D::vm_rss_kb, 100000, 110240, &D::vm_hwm_kb);
  check(1536, "Event_ResidentSize", rss, &D::vm_rss_kb, 10000, 15000, &D::vm_hwm_kb);
  check(1536, "Event_ResidentSize", rss, &D::vm_rss_kb, 0, 0, &D::vm_hwm_kb);
  check(1793, "Event_VssHeap", vss("HEAP"), &D::vss_heap_kb, 60000, 90000);
  check(1793, "Event_VssHeap", vss("HEAP"), &D::vss_heap_kb, 200000, 251200);
  check(1792, "Event_VssDalvik", vss("DALVIK"), &D::vss_dalvik_kb, 10, 15);
  check(1794, "Event_VssAshmem", vss("ASHMEM"), &D::vss_ashmem_kb, 10, 15);
  check(1795, "Event_VssKgsl", vss("KGSL"), &D::vss_kgsl_kb, 4294917000, 4294968200);
  check(1796, "Event_VssDmaBuf", vss("DMABUF"), &D::vss_dmabuf_kb, 10, 15);
  const std::string threads = "running threads amount,";
  check(1024, "Event_ThreadAmount", threads, &D::threads, 10, 15);
  check(1024, "Event_ThreadAmount", threads, &D::threads, 1400000000, 2100000000);
  check(1280, "Event_OpenFileAmount", "open files amount,", &D::open_files, 6, 9);
  check(1281, "Event_OpenFileFDSize", "open files FDSize,", &D::fd_size, 64, 64);
  EXPECT_EQ(poll(AUDIT_SOURCE_PROCENTRY, &all),
            (Ids{1536, 1793, 1792, 1794, 1795, 1796, 1024, 1280, 1281}));
}

TEST(Framework, KnowsItsSources) {
  AuditEventManager manager;
  CapturedOutput output;
  manager.pollEvents(64, nullptr);
  manager.addListener(32, nullptr);
  EXPECT_FALSE(manager.deliverEvent(32, 768, nullptr));
  EXPECT_EQ(output.log(),
            "taskwarden event|>> No such source (64) to poll!!\n"
            "taskwarden audit|>> No such source (32) to listen!!\n");
}

TEST(Framework, ASecondInitializeAddsTheHandlerAgain) {
  fresh_table();
  const auto before = AuditEventManager::getInstance()->hubs;
  tw_audit_initialize();
  EXPECT_EQ(AuditEventManager::getInstance()->hubs, before);
  for (const auto& [source, hub] : before) {
    EXPECT_EQ(hub->source, source);
    EXPECT_EQ(hub->listeners, std::vector(2, hub->listeners.front()));
    hub->listeners.pop_back();
  }
}

class Ranking : public testing::Test {
 protected:
  // Offers a process of the given size; the ranks then.
  std::string offer(uint32_t pid, uint64_t rss, int32_t ppid = 1, const char* name = "p") {
    tw_process_entry& entry = list->entries[pid];
    entry.pid = pid;
    entry.desc.vm_rss_kb = entry.baseline.vm_hwm_kb = rss;
    entry.desc.ppid = ppid;
    snprintf(entry.desc.name, sizeof(entry.desc.name), "%s#%u", name, pid);
    tw_event_poll_process_entry(list, &entry);
    return ranked(ppid == 1 ? native : list->runtime_collector);
  }
  static std::string ranked(const ProcessCollector* collector) {
    std::string pids;
    for (const tw_process_entry* member : collector->members) {
      pids += std::to_string(member->pid) + " ";
    }
    return pids + std::to_string(collector->changes.size());
  }
  tw_process_list* list = fresh_table();
  ProcessCollector* native = list->native_collector;
  CapturedOutput output;
};

TEST_F(Ranking, AdmitsEvictsAndDropsTheFreed) {
  for (uint32_t pid = 300; pid < 304; ++pid) offer(pid, pid < 302 ? 50 : 100);
  EXPECT_EQ(offer(304, 100), "300 301 302 303 304 5");
  EXPECT_EQ(offer(305, 50), "300 301 302 303 304 5");   // equal to the smallest
  EXPECT_EQ(offer(304, 500), "300 301 302 303 304 5");  // a member already, though larger
  EXPECT_EQ(offer(306, 51), "301 302 303 304 306 6");   // the first of two smallest goes
  EXPECT_EQ(native->changes.back().second, &list->entries[300]);
  EXPECT_EQ(offer(307, 9, 1, "zygote64"), "301 302 303 304 306 6");
  // A freed member goes even when the offered one stands before it, and so do its own changes.
  list->entries[303] = {};
  EXPECT_EQ(offer(301, 50), "301 302 304 306 5");
  EXPECT_EQ(offer(308, 1), "301 302 304 306 308 6");
  // The freed one moves the later candidate down a place.
  list->entries[301] = {};
  EXPECT_EQ(offer(309, 7), "302 304 306 308 309 6");
  list->entries[302] = {};
  native->capacity = 4;
  EXPECT_EQ(offer(310, 900), "304 306 309 310 6");
  native->capacity = 5;
  pid_of_zygote = 999;
  EXPECT_EQ(offer(311, 3, 999), "311 1");
}

TEST_F(Ranking, IsAnnouncedAndMarksTheInteresting) {
  interest_builtin_add("keep");
  EXPECT_EQ(output.report(), "Add the builtin interest: keep\n");
  for (uint32_t pid = 300; pid < 305; ++pid) {
    offer(pid, 100 + pid % 2, 1, pid == 300 ? "keep" : "50%s");
  }
  native->changes.clear();
  list->entries[300].interested = list->entries[302].interested = true;
  for (uint32_t pid : {305U, 306U, 307U}) offer(pid, 900 - 100 * (pid - 305));
  list->entries[305] = {};  // freed while its change is pending
  output.report();
  tw_event_poll_process_list(list);
  const std::string report = output.report(),
                    head = "\n" + std::string(55, '-') +
                           "\n-> Update process'RSS rank of \"Non-runtime\":\n"
                           "\t [*  1] pid 306 \"p#306\": RSS 800\n\t [*  2] pid 307 \"p#307\": RSS "
                           "700\n\t [   3] pid 30";
  EXPECT_TRUE(report.starts_with(head)) << report;
  std::string interested;
  for (uint32_t pid = 300; pid < 308; ++pid) {
    interested += list->entries[pid].interested ? '1' : '0';
  }
  EXPECT_EQ(interested, "10000011");
  EXPECT_NE(report.find("\"50%s#301\""), std::string::npos);
  tw_event_poll_process_list(list);
  EXPECT_EQ(output.report(), "");
}

TEST(Handler, CountsProcesses) {
  CapturedOutput output;
  tw_process_list list = {nullptr, 9, 0, 3, 4, 2, nullptr, nullptr, nullptr};
  AuditEvent event = {.id = 256, .source = AUDIT_SOURCE_PROCLIST, .data = &list};
  AuditEventHandler().onEventIncoming(&event);
  EXPECT_EQ(output.report(),
            "-> There're 9 running processes:\n\t KThread: 2, Native : 3, Runtime: 4\n");
}

TEST(Handler, DoesWithoutBlocksAndIgnoresTheRest) {
  fresh_table();
  MadeTree tree({{.pid = 400, .threads = 3}});
  CapturedOutput output;
  RecordListener listener;
  tw_process_entry entry = {};
  entry.pid = 400;
  strcpy(entry.desc.name, "app#400");
  const auto raise = [&](int32_t id) {
    AuditEvent event = {.id = id, .source = AUDIT_SOURCE_PROCENTRY, .data = &entry};
    EXPECT_TRUE(AuditEventHandler().onEventIncoming(&event));
    return output.report();
  };
  for (const bool kept : {false, true}) {
    no_blocks = true;
    EXPECT_EQ(raise(Event_ThreadAmount), "-> Too many threads in proc 400 \"app#400\": 0\n");
    EXPECT_EQ(raise(Event_ResidentSize), "-> RSS is too large in proc 400 \"app#400\": 0\n");
    EXPECT_EQ(entry.threads_counter_block != nullptr, kept);
    EXPECT_EQ(entry.divisions_block, nullptr);
    no_blocks = false;
    raise(Event_ThreadAmount);
  }
  EXPECT_TRUE(listener.next().ends_with("@@Event_ThreadAmount@@app#400@@\0"s));
  EXPECT_EQ(listener.next(0), "(nothing)");
  for (const int32_t silent : {768, 1792, 1793, 1794, 1795, 1796, 769}) {
    EXPECT_EQ(raise(silent), "");
  }
  EXPECT_EQ(entry.threads_counter_block, nullptr);
}

}  // namespace
