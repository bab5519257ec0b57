// The scan and the inspection pass, on made trees.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "audit/process_collector.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "proctable/zygote.h"
#include "support/captured_output.h"
#include "support/event_notes.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"

namespace {

class Table : public testing::Test {
 protected:
  tw_process_entry& slot(size_t pid) { return list->entries[pid]; }
  // One whole pass, scan included.
  void pass() {
    EXPECT_EQ(tw_process_list_refresh(list), 0);
    for (auto* at = list->head; at != nullptr;) tw_process_list_iterate(list, at, 1 << 20, &at);
    linked_pids(list);
  }
  MadeTree tree;  // first: the table takes its size from there
  tw_process_list* list = fresh_table();
  FakeClock clock;
  CapturedOutput output;
};

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
  EventNotes notes(AUDIT_SOURCE_PROCENTRY), table_notes(AUDIT_SOURCE_PROCLIST);
  const std::vector<uint32_t> order = linked_pids(list);
  for (const size_t gone : {0U, 1U, 2U, 4U, 9U}) tree.remove(static_cast<int>(order[gone]));
  tw_process_entry* cursor = nullptr;
  clock.steps_ms = {0, 25, 25, 25};
  // Three gone at no cost, then live, gone, live, live: 75 ms.
  EXPECT_EQ(tw_process_list_iterate(list, list->head, 60, &cursor), 75);
  EXPECT_EQ(cursor, &slot(order[7]));
  EXPECT_EQ(list->remaining, 3U);
  clock.steps_ms = {0, 1, 1};
  EXPECT_EQ(tw_process_list_iterate(list, cursor, 60, &cursor), 2);
  EXPECT_EQ(cursor, nullptr);
  std::string exits;
  for (const size_t gone : {0U, 1U, 2U, 4U, 9U}) {
    exits += "769<dummy " + std::to_string(order[gone]) + "> ";
    EXPECT_EQ(memcmp(&slot(order[gone]), &slot(0), sizeof(slot(0))), 0);
  }
  EXPECT_EQ(notes.take(), exits);
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
  list->native_collector->changes = {{list->head, nullptr}};
  tw_process_list_iterate(list, nullptr, 60, &cursor);
  EXPECT_EQ(table_notes.take(), "513 ");
  EXPECT_TRUE(list->native_collector->changes.empty());
}

TEST_F(Table, IdentitiesBaselinesAndKinds) {
  interest_builtin_add("app_b");
  EventNotes notes(AUDIT_SOURCE_PROCENTRY);
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

  clock.advance_ms(2999);  // a second boundary short of three
  pass();
  EXPECT_FALSE(slot(402).interested || slot(402).baseline_taken);
  clock.advance_ms(1);
  pass();
  EXPECT_TRUE(slot(402).baseline_taken && !slot(401).baseline_taken);
  EXPECT_EQ(list->runtime_collector->members, (std::vector<tw_process_entry*>{&slot(402)}));
  EXPECT_EQ(list->native_collector->members, (std::vector<tw_process_entry*>{&slot(403)}));

  tree.put({.pid = 402, .name = "app_a", .ppid = 400, .threads = 20});
  pass();
  tree.put({.pid = 402, .name = "app_b", .ppid = 400, .threads = 90});
  pass();
  EXPECT_EQ(notes.take(), "1024app_a#402+ 770app_a#402 ");
  EXPECT_TRUE(slot(402).interested && !slot(402).baseline_taken);
  EXPECT_EQ(slot(402).threads_counter_block, nullptr);
  EXPECT_EQ(slot(402).identity_time, clock.us / 1000000);
  EXPECT_EQ(slot(402).baseline.threads, 20);
  clock.advance_ms(3000);
  pass();
  EXPECT_EQ(slot(402).baseline.threads, 90);
}

}  // namespace
