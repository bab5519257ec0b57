// The event framework: hubs at their limits, routing, collectors and the handler.
#include <gtest/gtest.h>

#include <array>
#include <cstring>

#include "audit/audit_event_handler.h"
#include "audit/audit_event_manager.h"
#include "audit/audit_initialize.h"
#include "audit/entry_blocks.h"
#include "audit/poll.h"
#include "audit/proc_entry_event_hub.h"
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

TEST(Hubs, ProcessLevelsAtEachLimit) {
  using D = tw_process_desc;
  constexpr uint64_t kPeak = 777;  // what the level of the resident size becomes
  const std::string grew = "\" increasement, peak";
  const struct {
    int32_t id;
    std::string event, detail;
    uint64_t D::*size;
    int32_t D::*count;
    std::vector<std::array<uint64_t, 3>> limits;  // level, the most that is quiet, what fires
  } rows[] = {
      {1536,
       "Event_ResidentSize",
       "RSS increasement, peak",
       &D::vm_rss_kb,
       nullptr,
       {{100000, 110240, 110241}, {10000, 15000, 15001}, {0, 0, 1}}},
      {1793,
       "Event_VssHeap",
       "VSS \"HEAP" + grew,
       &D::vss_heap_kb,
       nullptr,
       {{60000, 90000, 90001}, {200000, 251200, 251201}}},
      {1792, "Event_VssDalvik", "VSS \"DALVIK" + grew, &D::vss_dalvik_kb, nullptr, {{10, 15, 16}}},
      {1794, "Event_VssAshmem", "VSS \"ASHMEM" + grew, &D::vss_ashmem_kb, nullptr, {{10, 15, 16}}},
      {1795, "Event_VssKgsl", "VSS \"KGSL" + grew, &D::vss_kgsl_kb, nullptr, {{1, 1, 4294967298}}},
      {1796, "Event_VssDmaBuf", "VSS \"DMABUF" + grew, &D::vss_dmabuf_kb, nullptr, {{10, 15, 16}}},
      {1024,
       "Event_ThreadAmount",
       "running threads amount,",
       nullptr,
       &D::threads,
       {{10, 15, 16}, {1400000000, 2100000000, 2100000001}}},
      {1280, "Event_OpenFileAmount", "open files amount,", nullptr, &D::open_files, {{6, 9, 10}}},
      {1281, "Event_OpenFileFDSize", "open files FDSize,", nullptr, &D::fd_size, {{64, 64, 65}}}};
  RecordListener listener;
  tw_process_entry all = {};
  Ids ids;
  for (const auto& row : rows) {
    SCOPED_TRACE(row.event);
    CapturedOutput output;
    tw_process_entry entry = {};
    entry.pid = 7;
    strcpy(entry.desc.name, "p#7");
    const auto poll_at = [&](uint64_t level, uint64_t current) {
      if (row.count != nullptr) {
        entry.baseline.*row.count = static_cast<int32_t>(level);
        entry.desc.*row.count = static_cast<int32_t>(current);
      } else {
        entry.baseline.*row.size = entry.baseline.vm_hwm_kb = level;
        entry.desc.*row.size = current;
        entry.desc.vm_hwm_kb = kPeak;
      }
      return poll(AUDIT_SOURCE_PROCENTRY, &entry);
    };
    const auto level = [&] {
      return row.count != nullptr ? static_cast<uint64_t>(entry.baseline.*row.count)
             : row.id == 1536     ? entry.baseline.vm_hwm_kb
                                  : entry.baseline.*row.size;
    };
    for (const auto& [reference, quiet, firing] : row.limits) {
      EXPECT_EQ(poll_at(reference, quiet), Ids{});
      EXPECT_EQ(level(), reference);
      EXPECT_EQ(poll_at(reference, firing), Ids{row.id});
      EXPECT_EQ(level(), row.id == 1536 ? kPeak : firing);
      const std::string shown = std::to_string(static_cast<uint32_t>(firing));
      EXPECT_EQ(output.report(), block(row.event, " by proc 7 \"p#7\": " + row.detail + " " +
                                                      std::to_string(reference) + " -> " + shown));
      const bool sent = row.id >= 1792 && row.id != 1794;
      EXPECT_EQ(listener.next(0),
                sent ? "7@@" + shown + "@@" + row.event + "@@p#7@@" + '\0' : "(nothing)");
    }
    if (row.id >= 1792) {
      EXPECT_EQ(poll_at(0, 60000), Ids{});  // the first size seen is only kept
      EXPECT_EQ(level(), 60000U);
    }
    (row.count ? all.desc.*row.count = 9 : 0);
    (row.size ? all.desc.*row.size = 9, all.baseline.*row.size = 1 : 0);
    ids.push_back(row.id);
  }
  EXPECT_EQ(poll(AUDIT_SOURCE_PROCENTRY, &all), ids);  // in this order
}

struct Noter final : AuditEventListener {
  bool onEventIncoming(AuditEvent* event) override {
    *notes += name + std::to_string(event->id) + "/" + std::to_string(event->source) + " ";
    return false;
  }
  char name;
  std::string* notes;
};

TEST(Framework, RoutesEventsInOrder) {
  AuditEventManager manager;
  CapturedOutput output;
  ProcEntryEventHub entries;
  entries.source = 32;
  std::string notes;
  Noter a;
  Noter b;
  a.name = 'a', b.name = 'b';
  a.notes = b.notes = &notes;
  manager.pollEvents(64, nullptr);
  manager.addListener(32, &a);
  EXPECT_FALSE(manager.deliverEvent(32, 768, nullptr));
  EXPECT_EQ(output.log(),
            "taskwarden event|>> No such source (64) to poll!!\n"
            "taskwarden audit|>> No such source (32) to listen!!\n");
  manager.hubs[32] = &entries;
  manager.addListener(32, &a);
  manager.addListener(32, &b);
  tw_process_entry entry = {};
  manager.pollEvents(32, &entry);
  EXPECT_EQ(notes, "");
  entry.desc.threads = entry.desc.fd_size = 1;
  manager.pollEvents(32, &entry);
  EXPECT_EQ(notes, "a1024/32 b1024/32 a1281/32 b1281/32 ");
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
  // Offers a process of the given size: admitted or not.
  int offer(uint32_t pid, uint64_t rss, int32_t ppid = 1, const char* name = "p") {
    tw_process_entry& entry = list->entries[pid];
    entry.pid = pid;
    entry.desc.vm_rss_kb = entry.baseline.vm_hwm_kb = rss;
    entry.desc.ppid = ppid;
    snprintf(entry.desc.name, sizeof(entry.desc.name), "%s#%u", name, pid);
    const size_t before = list->native_collector->changes.size();
    tw_event_poll_process_entry(list, &entry);
    return static_cast<int>(list->native_collector->changes.size() - before);
  }
  std::string ranked(const ProcessCollector* collector) {
    std::string pids;
    for (const tw_process_entry* member : collector->members) {
      pids += std::to_string(member->pid) + " ";
    }
    return pids;
  }
  ~Ranking() override {
    for (uint32_t pid = 300; pid < 320; ++pid) {
      list->entries[pid] = {};
    }
  }
  tw_process_list* list = fresh_table();
  CapturedOutput output;
};

TEST_F(Ranking, AdmitsEvictsAndDropsTheFreed) {
  ProcessCollector* native = list->native_collector;
  EXPECT_STREQ(native->name, "Non-runtime");
  EXPECT_STREQ(list->runtime_collector->name, "Runtime");
  for (uint32_t pid = 300; pid < 305; ++pid) {
    EXPECT_EQ(offer(pid, pid < 302 ? 50 : 100), 1);
  }
  EXPECT_EQ(offer(305, 50), 0);   // equal to the smallest
  EXPECT_EQ(offer(304, 500), 0);  // a member already, though larger
  EXPECT_EQ(offer(306, 51), 1);   // the first of two smallest goes
  EXPECT_EQ(native->changes.back().second, &list->entries[300]);
  EXPECT_EQ(ranked(native), "301 302 303 304 306 ");
  EXPECT_EQ(offer(307, 9, 1, "zygote64"), 0);
  // A freed member goes even when the offered one stands before it, and so do its own changes.
  list->entries[303] = {};
  EXPECT_EQ(offer(301, 50), -1);
  EXPECT_EQ(ranked(native), "301 302 304 306 ");
  EXPECT_EQ(offer(308, 1), 1);
  // The freed one moves the later candidate down a place.
  list->entries[301] = {};
  offer(309, 7);
  list->entries[302] = {};
  native->capacity = 4;
  offer(310, 900);
  EXPECT_EQ(ranked(native), "304 306 309 310 ");
  native->capacity = 5;
  pid_of_zygote = 999;
  offer(311, 3, 999);
  EXPECT_EQ(ranked(list->runtime_collector), "311 ");
}

TEST_F(Ranking, IsAnnouncedAndMarksTheInteresting) {
  interest_builtin_add("keep");
  for (uint32_t pid = 300; pid < 305; ++pid) {
    offer(pid, 100 + pid % 2, 1, pid == 300 ? "keep" : "50%s");
  }
  list->native_collector->changes.clear();
  for (uint32_t pid : {300U, 302U}) {
    list->entries[pid].interested = true;
  }
  offer(305, 900);
  offer(306, 800);
  offer(307, 700);
  list->entries[305] = {};  // freed while its change is pending
  output.report();
  tw_event_poll_process_list(list);
  const std::string report = output.report();
  EXPECT_TRUE(
      report.starts_with("\n-------------------------------------------------------\n"
                         "-> Update process'RSS rank of \"Non-runtime\":\n"));
  EXPECT_TRUE(list->entries[300].interested && !list->entries[302].interested);
  EXPECT_TRUE(list->entries[306].interested && list->entries[307].interested);
  EXPECT_FALSE(list->entries[305].interested);
  EXPECT_NE(
      report.find("\t [*  1] pid 306 \"p#306\": RSS 800\n\t [*  2] pid 307 \"p#307\": RSS 700\n"
                  "\t [   3] pid 30"),
      std::string::npos)
      << report;
  EXPECT_NE(report.find("\"50%s#301\""), std::string::npos);
  tw_event_poll_process_list(list);
  EXPECT_EQ(output.report(), "");
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
