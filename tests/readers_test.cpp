// The readers as hosts call them: without a record, without a counter, without the right to read.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "inspect/open_files.h"
#include "inspect/parse_pair.h"
#include "inspect/system/meminfo.h"
#include "inspect/system/slabinfo.h"
#include "inspect/threads.h"
#include "inspect/vma_division.h"
#include "interest/interest_list.h"
#include "interest/interest_mark.h"
#include "platform/unique_fd.h"
#include "proctable/inspection.h"
#include "proctable/pool.h"
#include "proctable/scan.h"
#include "support/world.h"
#include "taskwarden/taskwarden.h"

using namespace std::string_literals;

TEST(Readers, DoWithoutRecordsAndCounters) {
  World w({{.pid = 3, .threads = 2, .fds = 12}});
  tw_process_desc desc = {};
  tw_process_check_openfiles(3, &desc, nullptr), tw_process_check_threads(3, nullptr);
  EXPECT_EQ(desc.open_files, 12);
  EXPECT_EQ(w.told(), "");
  const int lowest_free = unique_fd(dup(0)).get();
  w.on_report = [&](auto) { EXPECT_EQ(unique_fd(dup(0)).get(), lowest_free); };
  StringCounter files;
  tw_process_check_openfiles(3, nullptr, &files);
  EXPECT_EQ(files.at("<SOCKET>"), 12);
  w.told(), w.on_report = [](auto) {};
  for (const bool free : {true, false}) {  // the record of its own keeps nothing
    w.tree.write("meminfo", free ? "MemFree: 2000000\n" : "");
    EXPECT_EQ(tw_system_check_meminfo(nullptr), 0U);
    EXPECT_EQ(w.told().empty(), free);
  }
  EXPECT_EQ(tw_system_check_slabinfo(nullptr), 0U);
  interested_proc_set(nullptr, true);
  w.clock.steps_ms = {0, 5, 0, 6, 0, 7};
  EXPECT_EQ(tw_onschedule_stats(w.list, 15) + tw_onschedule_stats(w.list, -1), 0);
  for (const int tick : {0, 30, -30})
    EXPECT_EQ(tw_onschedule_stats(w.list, tick), 5 + (tick != 0) + (tick < 0));
}

// A table of another's has nothing beside it, and needs none of ours.
TEST(Readers, FillAnyTable) {
  MadeTree tree({{.pid = 400, .fds = 3}});
  FakeClock clock;
  taskwarden_set_output([](void*, int, const char*, const char*, size_t) {}, nullptr);
  static tw_process_entry slots[TW_PROCESS_SLOTS];
  tw_process_list list = {};
  list.entries = slots;
  tree.write("35000/status", "");
  const auto visit = [&] {
    clock.advance_ms(3000);
    EXPECT_EQ(tw_process_list_refresh(&list), 0);
    tw_process_entry* cursor = nullptr;
    tw_process_list_iterate(&list, list.head, 60, &cursor);
    taskwarden_progress progress = {};
    progress.size = sizeof(progress);
    taskwarden_get_progress(&progress);
    return progress.baselines;
  };
  const uint32_t before = visit();
  for (const int fds : {3, 4, 5}) {
    tree.put({.pid = 400, .fds = fds});
    EXPECT_EQ(visit(), before + 1);
    EXPECT_TRUE(list.count == 1 && list.head == &slots[400] && slots[400].desc.open_files == fds);
  }
  EXPECT_TRUE(slots[400].baseline_taken);
  tree.put({.pid = 400, .name = "renamed"});
  EXPECT_EQ(visit(), before);
  EXPECT_EQ(visit(), before + 1);
  tree.remove(400);
  EXPECT_EQ(visit(), before);
  taskwarden_set_output(nullptr, nullptr);
}

TEST(Readers, KnowTheirLimits) {
  char line[] = "a: b \tc\r\nd:e\n";
  EXPECT_EQ(parse_pair(line), 3);
  EXPECT_EQ(std::string(line, sizeof(line)), "a: b\0\0c\0\0d:e\0\0"s);
  for (const int invalid : {-1, 18}) {
    const auto type = static_cast<VMA_DIVISION_TYPE>(invalid);
    EXPECT_STREQ(vma_division_typename(type), "<invalid vma division>");
  }
}

TEST(Readers, LeaveDescriptorsThatMayNotBeListed) {
  World w({{.pid = 3}});
  tw_process_desc desc = {};
  desc.open_files = 7;
  std::filesystem::permissions(w.tree.root() / "3/fd", {});
  EXPECT_EXIT(
      {
        std::ignore = seteuid(65534);  // a user whom modes keep out, unlike the super-user
        tw_process_check_openfiles(3, &desc, nullptr);
        _exit(desc.open_files);
      },
      testing::ExitedWithCode(7), "^$");
  std::filesystem::permissions(w.tree.root() / "3/fd", std::filesystem::perms::owner_all);
}
