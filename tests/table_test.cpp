// The scan, the inspection pass and what is said of its processes, on made trees.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>

#include "audit/audit_event_handler.h"
#include "audit/process_collector.h"
#include "inspect/system/meminfo.h"
#include "interest/interest_dump.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "proctable/suspicious_dump.h"
#include "proctable/zygote.h"
#include "support/captured_output.h"
#include "support/event_notes.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"
#include "support/record_listener.h"

namespace {

// One area of 132 kB.
std::string area(const std::string& path, const std::string& keys) {
  return "10000-31000 rw-p 00000000 00:00 0    " + path + "\n" + keys;
}

class Table : public testing::Test {
 protected:
  tw_process_entry& slot(size_t pid) { return list->entries[pid]; }
  // One whole pass, scan included, `ms` after the last.
  void pass(int64_t ms = 0) {
    clock.advance_ms(ms);
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
  EXPECT_EQ(list->native_count, 1U);
  tree.put({.pid = 402, .name = "app_a", .ppid = 400, .threads = 10});
  tree.put({.pid = 403, .name = "init", .ppid = 0});
  pass();
  EXPECT_EQ(pid_of_zygote64, 400);
  EXPECT_EQ((std::vector<uint32_t>{list->runtime_count, list->native_count, list->kthread_count}),
            (std::vector<uint32_t>{1, 1, 1}));
  EXPECT_TRUE(slot(401).inspected_time == 0 && slot(402).inspected_time == clock.us / 1000000);

  pass(2999);  // a second boundary short of three
  EXPECT_FALSE(slot(402).interested || slot(402).baseline_taken);
  pass(1);
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
  pass(3000);
  EXPECT_EQ(slot(402).baseline.threads, 90);

  // A clock set an hour forward or back makes any identity old enough.
  for (const int64_t ms : {3600000, -3600000}) {
    tree.put({.pid = 402, .name = std::to_string(ms), .ppid = 400});
    pass();
    EXPECT_FALSE(slot(402).baseline_taken);
    pass(ms);
    EXPECT_TRUE(slot(402).baseline_taken);
  }
}

TEST_F(Table, ResidentSizeByDivision) {
  RecordListener listener;
  tw_process_entry entry = {};
  entry.pid = 9;
  entry.desc.vm_rss_kb = 5000;
  strcpy(entry.desc.name, "app#9");
  const auto smaps = [](int dmabuf, int fonts, const std::string& rest = "VmFlags:\n") {
    return area("/dmabuf:", "Rss: " + std::to_string(dmabuf) + " kB\nVmFlags:\n") +
           area("a.ttf", "Rss: " + std::to_string(fonts) + " kB\n" + rest);
  };
  const std::pair<std::string, std::string> rows[] = {
      {smaps(100, 100), ""},
      {smaps(100, 100), ""},
      {smaps(2148, 90),
       "\t #13: \"    DMABUF\" eaten     2148 kB in   1 areas; increased     2048 kB, 0 areas\n"
       "\t -> THE MAX INCREASE is \"DMABUF\" (13)\n"},
      {smaps(2149, 91) + smaps(0, 0),
       "\t #09: \"      FONT\" eaten       91 kB in   2 areas; increased        1 kB, 1 areas\n"
       "\t #13: \"    DMABUF\" eaten     2149 kB in   2 areas; increased        1 kB, 1 areas\n"
       "\t -> THE MAX INCREASE is \"FONT\" (9)\n"},
      {smaps(2149, 91, "Pss: 7 kB\nVmFlags:\n"), "\t -> THE MAX INCREASE is \"DALVIK\" (0)\n"},
      {smaps(2149, 91, "Pss: 7 kB\nVmFlags:\n"), ""}};
  AuditEvent event = {.id = Event_ResidentSize, .source = AUDIT_SOURCE_PROCENTRY, .data = &entry};
  for (const auto& [now, told] : rows) {
    tree.write("9/smaps", now);
    AuditEventHandler().onEventIncoming(&event);
    EXPECT_EQ(output.report(), "-> RSS is too large in proc 9 \"app#9\": 5000\n" + told);
    const std::string record = std::string("9@@5000@@Event_ResidentSize@@app#9@@") + '\0';
    EXPECT_EQ(listener.next(0), told.empty() ? "(nothing)" : record);
  }
  event.id = Event_ProcExited;
  AuditEventHandler().onEventIncoming(&event);
  EXPECT_EQ(entry.divisions_block, nullptr);
}

TEST_F(Table, SlabsAndListings) {
  tree.write("slabinfo", "dentry 3 3 100 1\n");
  tree.write("meminfo", "MemFree: 2000000 kB\nSUnreclaim: 2097152 kB\n");
  tw_system_check_meminfo(nullptr);
  const std::string census = output.report();
  EXPECT_TRUE(census.starts_with(
      "\n" + std::string(55, '-') +
      "\nAuditEvent_SlabUnreclaimSize\n-> audit evnet: slab unreclaim 2097152\n"
      "SLAB has 1 entries (size>0), totally 300 bytes; TOP-10:\n\t # 1               dentry: "))
      << census;
  EXPECT_EQ(std::count(census.begin(), census.end(), '\n'), 15);

  interest_builtin_add("interesting");
  for (const MadeProcess& row : {MadeProcess{.pid = 301, .ppid = 2, .threads = 90},
                                 {.pid = 302, .ppid = 3, .threads = 50, .rss = 204800},
                                 {.pid = 303, .threads = 51},
                                 {.pid = 304, .name = "interesting", .rss = 204801, .hwm = 204802},
                                 {.pid = 305, .fds = 201},
                                 {.pid = 306, .fds = 200}}) {
    tree.put(row);
    tw_process_list_refresh(list);
  }
  tree.write("304/smaps", area("[stack]", "Rss: 8 kB\nVmFlags:\n"));
  pass(3000);
  output.report();
  tw_process_list_dump(list);
  EXPECT_EQ(output.report(),
            "-> Dump parts of 6 processes:\n"
            "     1    305          app#305 [S] : rss total [   1000/   1000], threads [1], "
            "openfils [201/64]\n"
            "     2    304  interesting#304 [S] : rss total [ 204801/ 204802], threads [1], "
            "openfils [3/64]\n"
            "     3    303          app#303 [S] : rss total [   1000/   1000], threads [51], "
            "openfils [3/64]\n");
  interested_proc_dumpall(list);
  const std::string dump = output.report();
  EXPECT_TRUE(dump.starts_with(
      "-> Dump the interested processes:\nINTERESTED 00: pid 304 \"interesting#304\"\n"
      "Process 304 summary of smaps:\n\t          DALVIK: VSS        0, RSS      0, PSS      0, "))
      << dump;
  EXPECT_NE(dump.find("\t           STACK: VSS      132, RSS      8, PSS      0,    1 VMAs\n"),
            std::string::npos);
  EXPECT_TRUE(dump.ends_with("    0 VMAs\n\n"));
}

// Ranks bring interest, and interest the reading of maps, from the visit after the mark on.
TEST_F(Table, TheLargestAreReadCloser) {
  const auto put = [&](int pid, uint64_t rss) {
    tree.put({.pid = pid, .rss = rss, .hwm = 5000});
    tree.write(std::to_string(pid) + "/maps", area("/dev/kgsl", ""));
  };
  const auto& first = list->entries[301];
  const auto& sixth = list->entries[306];
  for (int i = 1; i <= 6; ++i) put(300 + i, i == 6 ? 1 : 1000 + static_cast<uint64_t>(i));
  pass(3000);
  pass(3000);
  list->native_collector->members = {};  // whatever the order of the directory, 306 is out
  pass(3000);
  pass(3000);
  EXPECT_EQ(std::pair(first.desc.vss_kgsl_kb, sixth.desc.vss_kgsl_kb), std::pair(132UL, 0UL));
  put(306, 5000);
  output.report();
  pass(3000);
  EXPECT_NE(output.report().find("\t [*  1] pid 306 \"app#306\": RSS 5000\n\t [   2] pid 305"),
            std::string::npos);
  EXPECT_TRUE(sixth.interested && !first.interested);
  tree.write("301/maps", "");  // what was read last stays
  pass(3000);
  EXPECT_EQ(std::pair(first.desc.vss_kgsl_kb, sixth.desc.vss_kgsl_kb), std::pair(132UL, 132UL));
}

}  // namespace
