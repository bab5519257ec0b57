// Real processes grow, rename themselves and go, and the table follows them through the machine's
// own process file system. The cycle's work is done by hand.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>

#include <fstream>
#include <map>
#include <regex>
#include <sstream>

#include "inspect/maps.h"
#include "inspect/smaps.h"
#include "interest/interest_list.h"
#include "platform/unique_fd.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/child.h"
#include "support/world.h"
#include "taskwarden/taskwarden.h"

TEST(Live, GrowthNewNamesAndTheEnd) {
  interest_builtin_add("it_b");
  World w({}, "/proc");
  Child child("a");
  const auto pid = static_cast<uint32_t>(child.pid());
  // What a scan and a slice of one live process tell, 3 s after the last ones: who grew, what there
  // is more of, records and events. P stands for the pid.
  const auto after = [&](const std::vector<const char*>& commands) {
    for (const char* command : commands) child.command(command);
    w.clock.advance_ms(3000);
    tw_process_list_refresh(w.list);
    tw_process_entry* cursor = nullptr;
    tw_process_list_iterate(w.list, &w[pid], 0, &cursor);
    const std::regex own("\\b" + std::to_string(pid) + "\\b"), wanted("^[=@\\[]|ed: ");
    std::istringstream lines(std::regex_replace(w.told(), own, "P"));
    std::string kept;
    for (std::string line; std::getline(lines, line);) {
      if (std::regex_search(line, wanted)) kept += line + "\n";
    }
    return kept;
  };
  after({"threads Thread- 9", "pipes 2", "sockets 3", "files 2", "table 300"});
  EXPECT_EQ(after({}), "");
  EXPECT_NE(after({"threads Thread- 4", "threads Binder: 6", "sockets 10"}), "");
  EXPECT_EQ(after({"threads Binder: 7", "threads Thread- 8", "threads its_name_is_cut 5",
                   "sockets 6", "pipes 8", "files 8", "table 600"}),
            "=Event_ThreadAmount P a#P running threads amount, 20 -> 40\n"
            "=Event_OpenFileAmount P a#P open files amount, 20 -> 42\n"
            "=Event_OpenFileFDSize P a#P open files FDSize, 512 -> 1024\n"
            "\t \" <BINDER THREAD>\" created: 7\n\t \"        <THREAD>\" created: 8\n"
            "\t \" its_name_is_cut\" created: 5\n@P@@40@@Event_ThreadAmount@@a#P@@\n[1024 a#P+]\n"
            "\t \"/dev/null\" added: 8\n\t \"<PIPE>\" added: 8\n\t \"<SOCKET>\" added: 6\n"
            "@P@@42@@Event_OpenFileAmount@@a#P@@\n[1280 a#P+]\n[1281 a#P+]\n");
  EXPECT_TRUE(after({"exec it_b"}).starts_with("[770 a#P now it_b#P "));
  EXPECT_TRUE(w[pid].interested);
  EXPECT_TRUE(after({"exec c"}).starts_with("[770 it_b#P now c#P "));
  const std::string row = w.row(pid);
  EXPECT_TRUE(row.ends_with(" 0,0 ")) << row;
  child.end();
  EXPECT_TRUE(after({}).starts_with("[769 c#P]\n"));
  EXPECT_EQ(w.row(pid), "free");
}

TEST(Live, DivisionsAddUpToTheKernelsSums) {
  Child child("a");
  child.command("anon 2048");
  kill(child.pid(), SIGSTOP);  // so that two readings agree
  waitpid(child.pid(), nullptr, WUNTRACED);
  using Sums = std::map<std::string, uint64_t>;
  const auto read_kernel = [&] {
    Sums sums;
    std::ifstream smaps("/proc/" + std::to_string(child.pid()) + "/smaps");
    for (std::string line, key; std::getline(smaps, line);) {
      uint64_t kb = 0;
      std::istringstream(line) >> key >> kb;
      sums[key] += key == "VmFlags:" ? 1 : kb;
    }
    return sums;
  };
  // The share of a library's pages (Pss) moves with every process that maps it too: ours counts
  // where the kernel says the same before it and after.
  vma_division_t divisions[VMA_DIVISION_COUNT], sum = {};
  Sums kernel, after = read_kernel();
  for (int tries = 0; tries < 1000 && kernel != after; tries++) {
    kernel = std::move(after);
    EXPECT_EQ(tw_process_check_smaps(child.pid(), divisions), kernel["Rss:"]);
    after = read_kernel();
  }
  ASSERT_EQ(kernel, after) << "the machine never rested";
  for (const vma_division_t& d : divisions)
    sum = {sum.vss_kb + d.vss_kb, sum.rss_kb + d.rss_kb, sum.pss_kb + d.pss_kb,
           sum.vma_count + d.vma_count};
  EXPECT_EQ(sum, (vma_division_t{kernel["Size:"], kernel["Rss:"], kernel["Pss:"],
                                 static_cast<uint32_t>(kernel["VmFlags:"])}));
  EXPECT_GE(divisions[VMA_DIVISION_UNNAMED].rss_kb, 2048U);
  tw_process_desc desc = {};
  EXPECT_EQ(tw_process_check_maps(child.pid(), &desc), static_cast<int32_t>(sum.vma_count));
}

// While the size of the directory is the count of descriptors it need not be listed.
TEST(Live, TheCountFollowsTheDescriptors) {
  World w({}, "/proc");
  tw_process_list_refresh(w.list);
  const auto count = [&] {
    tw_process_entry* cursor = nullptr;
    tw_process_list_iterate(w.list, &w[static_cast<size_t>(getpid())], 0, &cursor);
    return w[static_cast<size_t>(getpid())].desc.open_files;
  };
  const int before = count();
  const unique_fd one(dup(0));
  unique_fd other(dup(0));
  EXPECT_EQ(count(), before + 2);
  other.reset();
  EXPECT_EQ(count(), before + 1);
  other.reset(dup(0));
  EXPECT_EQ(count(), before + 2);

  // The sizes of other file systems say nothing: each visit lists.
  taskwarden_set_proc_root(w.tree.root().c_str());
  w.tree.put({.pid = getpid(), .fds = 3});
  EXPECT_EQ(count(), 3);
  const std::string fds = std::to_string(getpid()) + "/fd/";
  w.tree.remove(fds + "0"), w.tree.write(fds + "3", "no link");
  EXPECT_EQ(count(), 2);
}
