// The scan and the inspection pass, on made trees.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "audit/audit_event_manager.h"
#include "audit/process_collector.h"
#include "inspect/string_counter.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "proctable/storage.h"
#include "proctable/zygote.h"
#include "support/captured_output.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"

namespace {

// Writes down what is delivered for a source, as "id name" of the entry or just "id".
class Recorder final : public AuditEventListener {
 public:
  explicit Recorder(int32_t source)
      : listeners_(AuditEventManager::getInstance()->hubs.at(source)->listeners) {
    listeners_.insert(listeners_.begin(), this);  // before the handler lets the blocks go
  }
  ~Recorder() { listeners_.erase(listeners_.begin()); }
  bool onEventIncoming(AuditEvent* event) override {
    seen += std::to_string(event->id);
    if (event->source == AUDIT_SOURCE_PROCENTRY) {
      const auto* entry = static_cast<const tw_process_entry*>(event->data);
      EXPECT_TRUE(event->id != Event_ProcExited || (!entry->next && !entry->prev));
      seen += std::string(" ") + entry->desc.name;
    }
    seen += ";";
    return true;
  }
  std::string seen;

 private:
  std::vector<AuditEventListener*>& listeners_;
};

class Table : public testing::Test {
 protected:
  tw_process_entry& slot(size_t pid) { return list->entries[pid]; }
  // One whole pass with the given budgets, scan included; returns the slices it took.
  int pass(int32_t budget = 1 << 20) {
    EXPECT_EQ(tw_process_list_refresh(list), 0);
    tw_process_entry* cursor = list->head;
    int slices = 0;
    do {
      tw_process_list_iterate(list, cursor, budget, &cursor);
      ++slices;
    } while (cursor != nullptr);
    linked_pids(list);
    return slices;
  }

  MadeTree tree;  // first: the table takes its size from there
  tw_process_list* list = fresh_table();
  FakeClock clock;
  CapturedOutput output;
};

bool is_free(const tw_process_entry& entry) {
  static constexpr char kZeros[sizeof(tw_process_entry)] = {};
  return memcmp(&entry, kZeros, sizeof(kZeros)) == 0;
}

TEST_F(Table, ScanTakesDirectoriesOfPidsFrom300On) {
  for (const char* directory : {"1", "250", "299", "300", "301", "34999", "35000", "99999999999",
                                "4294967596", "self", "net", "-400", "12x", "x400"}) {
    tree.write(std::string(directory) + "/status", "");
  }
  tree.write("402", "a file");
  tree.link("403", "300");
  EXPECT_EQ(tw_process_list_refresh(list), 0);
  std::vector<uint32_t> pids = linked_pids(list);
  const std::vector<uint32_t> listed = pids;
  std::ranges::sort(pids);
  EXPECT_EQ(pids, (std::vector<uint32_t>{300, 301, 34999}));
  EXPECT_STREQ(slot(34999).desc.name, "<dummy 34999>");
  const std::string log = output.log();
  EXPECT_NE(log.find("are not watched!!\n"), std::string::npos);
  EXPECT_EQ(std::count(log.begin(), log.end(), '\n'), 1);

  list->native_count = list->runtime_count = list->kthread_count = list->remaining = 9;
  tree.put({.pid = 400});
  EXPECT_EQ(tw_process_list_refresh(list), 0);
  pids = listed;
  pids.insert(pids.begin(), 400);
  EXPECT_EQ(linked_pids(list), pids);
  EXPECT_EQ(list->native_count + list->runtime_count + list->kthread_count, 0U);
  EXPECT_EQ(list->remaining, 4U);
}

TEST_F(Table, SlicesStopAtTheBudgetAndGoneEntriesAreFree) {
  for (int pid = 300; pid < 310; ++pid) tree.put({.pid = pid});
  EXPECT_EQ(tw_process_list_refresh(list), 0);
  Recorder recorder(AUDIT_SOURCE_PROCENTRY);
  Recorder table_recorder(AUDIT_SOURCE_PROCLIST);
  std::vector<uint32_t> order = linked_pids(list);
  for (const size_t gone : {0U, 1U, 2U, 4U, 9U}) tree.remove(static_cast<int>(order[gone]));
  tw_process_entry* cursor = nullptr;
  clock.steps_ms = {0, 25, 25, 25};
  // Three gone at no cost, then live, gone, live, live: 75 ms.
  EXPECT_EQ(tw_process_list_iterate(list, list->head, 60, &cursor), 75);
  EXPECT_EQ(cursor, &slot(order[7]));
  EXPECT_EQ(list->remaining, 3U);
  EXPECT_EQ(list->head, &slot(order[3]));
  clock.steps_ms = {0, 1, 1};
  EXPECT_EQ(tw_process_list_iterate(list, cursor, 60, &cursor), 2);
  EXPECT_EQ(cursor, nullptr);
  EXPECT_EQ(std::count(recorder.seen.begin(), recorder.seen.end(), ';'), 5);
  EXPECT_EQ(recorder.seen.substr(0, 17), "769 <dummy " + std::to_string(order[0]) + ">;7");
  EXPECT_TRUE(is_free(slot(order[4])) && is_free(slot(order[9])));
  EXPECT_EQ(linked_pids(list),
            (std::vector<uint32_t>{order[3], order[5], order[6], order[7], order[8]}));
  EXPECT_EQ(output.log(), "");

  // With nothing to visit the closing steps still run, and the cursor is left alone.
  list->remaining = 2;
  cursor = list->head;
  EXPECT_EQ(tw_process_list_iterate(list, nullptr, 60, &cursor), 0);
  EXPECT_EQ(cursor, list->head);
  EXPECT_EQ(output.log(), "taskwarden stats|>> something goes wrong in past iterations (2)!!\n\n");
  list->remaining = 0;
  slot(order[3]).desc.vm_rss_kb = 1;
  list->native_collector->collect(&slot(order[3]));
  table_recorder.seen.clear();
  tw_process_list_iterate(list, nullptr, 60, &cursor);
  EXPECT_EQ(table_recorder.seen, "513;");
  EXPECT_TRUE(list->native_collector->changes.empty());
}

TEST_F(Table, IdentitiesBaselinesAndKinds) {
  interest_builtin_add("app_b");
  Recorder recorder(AUDIT_SOURCE_PROCENTRY);
  tree.put({.pid = 400, .name = "zygote64", .ppid = 1});
  tree.put({.pid = 401, .name = "kworker/0:1", .ppid = 2, .threads = 9});
  pass();
  tree.put({.pid = 402, .name = "app_a", .ppid = 400, .threads = 10});
  tree.put({.pid = 403, .name = "init", .ppid = 0});
  pass();
  EXPECT_EQ(pid_of_zygote64, 400);
  EXPECT_EQ((std::vector<uint32_t>{list->runtime_count, list->native_count, list->kthread_count}),
            (std::vector<uint32_t>{1, 1, 1}));
  EXPECT_TRUE(slot(401).inspected_time == 0 && slot(402).inspected_time == clock.us / 1000000);
  EXPECT_FALSE(slot(402).interested || slot(402).baseline_taken);

  clock.advance_ms(2999);  // a second boundary short of three
  pass();
  EXPECT_FALSE(slot(402).baseline_taken);
  clock.advance_ms(1);
  pass();
  EXPECT_TRUE(slot(402).baseline_taken && !slot(401).baseline_taken);
  EXPECT_EQ(list->runtime_collector->members, (std::vector<tw_process_entry*>{&slot(402)}));
  EXPECT_EQ(list->native_collector->members, (std::vector<tw_process_entry*>{&slot(403)}));

  tree.put({.pid = 402, .name = "app_a", .ppid = 400, .threads = 20});
  pass();
  EXPECT_NE(slot(402).threads_counter_block, nullptr);
  EXPECT_EQ(recorder.seen, "1024 app_a#402;");
  recorder.seen.clear();
  tree.put({.pid = 402, .name = "app_b", .ppid = 400, .threads = 90});
  pass();
  EXPECT_EQ(recorder.seen, "770 app_a#402;");
  EXPECT_TRUE(slot(402).interested && !slot(402).baseline_taken);
  EXPECT_EQ(slot(402).threads_counter_block, nullptr);
  EXPECT_EQ(slot(402).identity_time, clock.us / 1000000);
  EXPECT_EQ(slot(402).baseline.threads, 20);
  clock.advance_ms(3000);
  pass();
  EXPECT_EQ(slot(402).baseline.threads, 90);

  // A clock set an hour forward or back makes any identity old enough.
  for (const int64_t ms : {3600000, -3600000}) {
    tree.put({.pid = 402, .name = std::to_string(ms), .ppid = 400});
    pass();
    EXPECT_FALSE(slot(402).baseline_taken);
    clock.advance_ms(ms);
    pass();
    EXPECT_TRUE(slot(402).baseline_taken);
  }
}

TEST_F(Table, BlocksTakenUnderADummyNameAreLetGo) {
  tree.put({.pid = 500, .fds = 2});
  tree.remove("500/status");
  pass();
  EXPECT_TRUE(slot(500).baseline_taken);
  for (int i = 0; i < 9; ++i) tree.link("500/fd/1" + std::to_string(i), "pipe:[1]");
  Recorder recorder(AUDIT_SOURCE_PROCENTRY);
  pass();
  EXPECT_EQ(recorder.seen, "1280 <dummy 500>;");
  ASSERT_NE(slot(500).files_counter_block, nullptr);
  tree.put({.pid = 500});
  pass();
  EXPECT_EQ(slot(500).files_counter_block, nullptr);  // and the leak checker finds nothing
  EXPECT_EQ(recorder.seen, "1280 <dummy 500>;");
  EXPECT_STREQ(slot(500).desc.name, "app#500");
}

}  // namespace
