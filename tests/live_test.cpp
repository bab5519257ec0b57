// Real processes grow, rename themselves and go, and the table follows them through the machine's
// own process file system. The cycle's work is done by hand.
#include <gtest/gtest.h>
#include <malloc.h>
#include <signal.h>
#include <sys/wait.h>

#include <algorithm>
#include <fstream>
#include <regex>
#include <set>
#include <sstream>

#include "inspect/maps.h"
#include "inspect/smaps.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/captured_output.h"
#include "support/child.h"
#include "support/event_notes.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"
#include "support/record_listener.h"

using Slot = tw_process_entry;

TEST(Live, GrowthNewNamesAndTheEnd) {
  interest_builtin_add("it_b");
  tw_process_list* list = fresh_table();
  FakeClock clock;
  CapturedOutput out;
  RecordListener records;
  Child child("a");
  const int pid = child.pid();
  const Slot& slot = list->entries[pid];
  EventNotes notes(AUDIT_SOURCE_PROCENTRY, static_cast<uint32_t>(pid));
  // P stands for the pid, = for the two lines above an event's name.
  const auto plain = [pid](const std::string& text) {
    const std::regex own("\\b" + std::to_string(pid) + "\\b");
    return std::regex_replace(std::regex_replace(text, own, "P"), std::regex("\n-{55}\n"), "=");
  };
  // What a scan and a slice of one live process report, 3 s after the last ones.
  const auto after = [&](const std::vector<const char*>& commands) {
    for (const char* command : commands) child.command(command);
    clock.advance_ms(3000);
    tw_process_list_refresh(list);
    tw_process_entry* cursor = nullptr;
    tw_process_list_iterate(list, &list->entries[pid], 0, &cursor);
    return plain(out.report());
  };
  after({"threads Thread- 9", "pipes 2", "sockets 3", "files 2", "table 300"});
  EXPECT_EQ(after({}), "");
  after({"threads Thread- 4", "threads Binder: 6", "sockets 10"});
  EXPECT_EQ(records.next(0), "(nothing)");
  EXPECT_EQ(
      after({"threads Binder: 7", "threads Thread- 8", "threads its_name_is_cut 5", "sockets 6",
             "pipes 8", "files 8", "table 600"}),
      "=Event_ThreadAmount\n-> audit evnet by proc P \"a#P\": running threads amount, 20 -> 40\n"
      "=Event_OpenFileAmount\n-> audit evnet by proc P \"a#P\": open files amount, 20 -> 42\n"
      "=Event_OpenFileFDSize\n-> audit evnet by proc P \"a#P\": open files FDSize, 512 -> 1024\n"
      "-> Too many threads in proc P \"a#P\": 40\nDump threads' map of proc P, 4 kinds of "
      "threads\nAnd, only the thread which is more than 1 will be list:\n"
      "\t \" <BINDER THREAD>\": 13\n\t \"        <THREAD>\": 21\n\t \" its_name_is_cut\": 5\n"
      "-> Here they're the newly created:\n\t \" <BINDER THREAD>\" created: 7\n"
      "\t \"        <THREAD>\" created: 8\n\t \" its_name_is_cut\" created: 5\n"
      "-> Too many open files in proc P \"a#P\": 42\nDump openfiles' map of proc P, 3 kinds of "
      "files\nAnd, only the file opened more than 10 will be list:\n\t \"/dev/null\": 11\n"
      "\t \"<PIPE>\": 12\n\t \"<SOCKET>\": 19\n-> Here they're the newly opened:\n"
      "\t \"/dev/null\" added: 8\n\t \"<PIPE>\" added: 8\n\t \"<SOCKET>\" added: 6\n"
      "-> Too large \"FDSize\" in proc P \"a#P\": 1024\n");
  EXPECT_EQ(plain(records.next(0)), std::string("P@@40@@Event_ThreadAmount@@a#P@@") + '\0');
  EXPECT_EQ(plain(records.next(0)), std::string("P@@42@@Event_OpenFileAmount@@a#P@@") + '\0');
  after({"exec it_b"});
  EXPECT_TRUE(slot.interested && !slot.baseline_taken && slot.identity_time == clock.us / 1000000);
  after({"exec c"});
  EXPECT_FALSE(slot.interested || slot.baseline_taken || slot.threads_counter_block != nullptr);
  child.end();
  after({});
  // As the first slot, which stands for no process.
  EXPECT_EQ(memcmp(&slot, list->entries, sizeof(slot)), 0);
  // Others get its pid: one when it is free, the next between two visits.
  MadeTree tree{{.pid = pid, .name = "d"}};
  after({});
  tree.put({.pid = pid, .name = "e"});
  after({});
  EXPECT_EQ(plain(notes.take()),
            "1024a#P+ 1280a#P+ 1024a#P+ 1280a#P+ 1281a#P+ 770a#P 770it_b#P 769c#P "
            "770d#P ");
}

TEST(Live, DivisionsAddUpToTheKernelsSums) {
  Child child("a");
  const std::string pid = std::to_string(child.pid()), tag = "-tw" + std::to_string(getpid());
  const std::string temp = std::filesystem::temp_directory_path() / tag;
  std::map<int, std::pair<std::string, uint64_t>> mapped = {
      {VMA_DIVISION_FONT, {temp + ".ttf", 52}}, {VMA_DIVISION_OAT, {temp + ".odex", 12}}};
  if (getuid() == 0) {
    mapped[VMA_DIVISION_ASHMEM] = {"/dev/ashmem" + tag, 16};
    mapped[VMA_DIVISION_KGSL] = {"/dev/kgsl-3d0" + tag, 24};
  }
  for (const auto& [division, file] : mapped) {
    std::ofstream(file.first).flush();
    std::filesystem::resize_file(file.first, file.second << 10);
    child.command("map " + file.first);
    std::filesystem::remove(file.first);
  }
  child.command("anon 2048");
  kill(child.pid(), SIGSTOP);  // so that two readings agree
  waitpid(child.pid(), nullptr, WUNTRACED);
  std::map<std::string, uint64_t> kernel;
  std::ifstream smaps("/proc/" + pid + "/smaps");
  for (std::string line, key; std::getline(smaps, line);) {
    std::istringstream words(line);
    uint64_t kb = 0;
    words >> key >> kb;
    kernel[key] += key == "VmFlags:" ? 1 : kb;
  }
  vma_division_t divisions[VMA_DIVISION_COUNT], sum = {};
  EXPECT_EQ(tw_process_check_smaps(child.pid(), divisions), kernel["Rss:"]);
  for (const vma_division_t& division : divisions) {
    sum.vss_kb += division.vss_kb;
    sum.rss_kb += division.rss_kb;
    sum.vma_count += division.vma_count;
  }
  EXPECT_EQ(std::tuple(sum.vss_kb, sum.rss_kb, sum.vma_count),
            std::tuple(kernel["Size:"], kernel["Rss:"], kernel["VmFlags:"]));
  for (const auto& [division, file] : mapped) {
    EXPECT_EQ(divisions[division].vss_kb, file.second) << file.first;
  }
  EXPECT_GE(divisions[VMA_DIVISION_UNNAMED].rss_kb, 2048U);
  tw_process_desc desc = {};
  EXPECT_EQ(tw_process_check_maps(child.pid(), &desc), static_cast<int32_t>(sum.vma_count));
  EXPECT_EQ(desc.vss_kgsl_kb, divisions[VMA_DIVISION_KGSL].vss_kb);
  EXPECT_EQ(desc.vss_ashmem_kb, divisions[VMA_DIVISION_ASHMEM].vss_kb);
}

TEST(OwnProcess, StaysSmallWhileThousandsComeAndGo) {
  pass_low_pids();
  tw_process_list* list = fresh_table();
  taskwarden_set_output([](void*, int, const char*, const char*, size_t) {}, nullptr);
  const auto pass = [list] {
    tw_process_list_refresh(list);
    for (auto* at = list->head; at != nullptr;) tw_process_list_iterate(list, at, 60, &at);
  };
  pass();
  // The table has this very process too.
  const tw_process_desc& self = list->entries[getpid()].desc;
  const tw_process_desc before = self;
  const size_t heap = mallinfo2().uordblks;
  pid_t child = 0;
  for (int wave = 0; wave < 3; ++wave) {
    std::vector<pid_t> crowd;
    while (crowd.size() < 1000 && (child = fork()) > 0) crowd.push_back(child);
    if (child == 0) _exit(static_cast<int>(sleep(100)));
    const auto have = [&](auto field) {
      return std::ranges::count_if(crowd, [&](pid_t p) { return list->entries[p].*field != 0; });
    };
    pass();
    EXPECT_EQ(have(&Slot::inspected_time), 1000);
    for (int i = 0; wave == 0 && i < 2000 && have(&Slot::baseline_taken) < 1000; ++i) pass();
    for (const pid_t pid : crowd) EXPECT_EQ(kill(pid, SIGKILL) + waitpid(pid, nullptr, 0), pid);
    pass();
    EXPECT_EQ(have(&Slot::pid), 0);
  }
  // Where another heap is in use, a sanitizer's, this one is empty.
  EXPECT_LT(mallinfo2().uordblks, heap + 16384);
  EXPECT_EQ(self.open_files, before.open_files);
  // The slots of all pids given out meanwhile, and half a MiB for pages of the program's own.
  const size_t kb = static_cast<size_t>(std::abs(child - getpid())) * sizeof(Slot) / 1024 + 512;
  EXPECT_LT(heap > 0 ? self.vm_rss_kb : 0, before.vm_rss_kb + kb);
  // Who was there before and after a quiet pass is in the table.
  const auto shown = [] {
    std::set<unsigned long> pids;
    for (const auto& process : std::filesystem::directory_iterator("/proc"))
      pids.insert(strtoul(process.path().filename().c_str(), nullptr, 10));
    return pids;
  };
  const auto earlier = shown();
  pass();
  for (const auto pid : shown()) {
    if (pid < TW_FIRST_TRACKED_PID || !earlier.contains(pid)) continue;
    EXPECT_EQ(list->entries[pid].pid, pid);
  }
  linked_pids(list);
}
