// Real processes map memory and grow, and what is said of them is what the kernel says.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <regex>
#include <sstream>

#include "inspect/maps.h"
#include "inspect/smaps.h"
#include "inspect/system/slabinfo.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/captured_output.h"
#include "support/child.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/own_network.h"
#include "support/record_listener.h"

namespace {

// A child, which stands still while it is looked at, so that two readings of it agree.
class LiveMemory : public testing::Test {
 protected:
  LiveMemory() { own_network(); }
  ~LiveMemory() override {
    for (const std::string& path : files) std::filesystem::remove(path);
  }
  // Has the child map a file of that size without content, made for it.
  void map(const std::string& path, uint64_t kb) {
    std::ofstream(path).flush();
    std::filesystem::resize_file(files.emplace_back(path), kb << 10);
    child.command("map " + path);
  }
  void stop() const {
    kill(child.pid(), SIGSTOP);
    waitpid(child.pid(), nullptr, WUNTRACED);
  }
  // What a visit reports, 3 s after the last one.
  std::string visit() {
    stop();
    clock.advance_ms(3000);
    tw_process_list_refresh(list);
    tw_process_entry* cursor = nullptr;
    tw_process_list_iterate(list, &list->entries[child.pid()], 0, &cursor);
    kill(child.pid(), SIGCONT);
    return output.report();
  }
  const std::string tag = "-tw" + std::to_string(getpid());
  std::vector<std::string> files;
  RecordListener records;
  tw_process_list* list = fresh_table();
  FakeClock clock;
  CapturedOutput output;
  Child child{"interesting"};
  const std::string pid = std::to_string(child.pid()), name = "interesting#" + pid;
};

TEST_F(LiveMemory, DivisionsAddUpToTheKernelsSums) {
  const std::string temp = std::filesystem::temp_directory_path() / tag;
  std::map<int, std::pair<std::string, uint64_t>> mapped = {
      {VMA_DIVISION_APK, {temp + ".jar", 300}},
      {VMA_DIVISION_FONT, {temp + ".ttf", 52}},
      {VMA_DIVISION_OAT, {temp + ".odex", 12}}};
  if (getuid() == 0) {
    mapped[VMA_DIVISION_ASHMEM] = {"/dev/ashmem" + tag, 16};
    mapped[VMA_DIVISION_KGSL] = {"/dev/kgsl-3d0" + tag, 24};
    mapped[VMA_DIVISION_DEVNODE] = {"/dev/other" + tag, 28};
  }
  for (const auto& [division, file] : mapped) map(file.first, file.second);
  child.command("anon 2048");
  stop();
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
  std::ifstream maps("/proc/" + pid + "/maps");
  for (std::string line; std::getline(maps, line);) {
    const uint64_t end = std::stoull(line.substr(line.find('-') + 1), nullptr, 16);
    sum.vss_kb -= (end - std::stoull(line, nullptr, 16)) >> 10;
  }
  EXPECT_EQ(sum.vss_kb, 0U);
  for (const auto& [division, file] : mapped) {
    EXPECT_EQ(divisions[division].vss_kb, file.second) << file.first;
  }
  EXPECT_GE(divisions[VMA_DIVISION_UNNAMED].rss_kb, 2048U);
  tw_process_desc desc = {};
  EXPECT_EQ(tw_process_check_maps(child.pid(), &desc), static_cast<int32_t>(sum.vma_count));
  EXPECT_EQ(desc.vss_kgsl_kb, divisions[VMA_DIVISION_KGSL].vss_kb);
  EXPECT_EQ(desc.vss_ashmem_kb, divisions[VMA_DIVISION_ASHMEM].vss_kb);
}

TEST_F(LiveMemory, ResidentGrowthNamesItsDivision) {
  visit();
  visit();
  const std::string head = "RSS is too large in proc " + pid + " \"" + name + "\": \\d+\n";
  child.command("anon 30720");
  EXPECT_TRUE(std::regex_search(visit(), std::regex(head + "$")));
  EXPECT_EQ(records.next(0), "(nothing)");
  child.command("anon 30720");
  const std::string second = visit();
  EXPECT_TRUE(std::regex_search(
      second, std::regex(head + "(\t #.*\n)*\t #17: \"   UNNAMED\" eaten +\\d+ kB in +\\d+ areas; "
                                "increased +30\\d\\d\\d kB, \\d areas\n"
                                "\t -> THE MAX INCREASE is \"UNNAMED\" \\(17\\)\n$")))
      << second;
  const std::string rss = std::to_string(list->entries[child.pid()].desc.vm_rss_kb);
  EXPECT_EQ(records.next(), pid + "@@" + rss + "@@Event_ResidentSize@@" + name + "@@" + '\0');
}

TEST_F(LiveMemory, DeviceMemoryOfAnInterestingProcess) {
  if (getuid() != 0) GTEST_SKIP() << "makes files under /dev";
  interest_builtin_add("interesting#");
  output.report();
  map("/dev/kgsl" + tag, 4096);
  map("/dev/ashmem" + tag, 4096);
  for (int i = 0; i < 3; ++i) EXPECT_EQ(visit(), "");
  const std::string head = "\n" + std::string(55, '-') + "\nEvent_Vss";
  const std::string by = "\n-> audit evnet by proc " + pid + " \"" + name + "\": VSS ";
  map("/dev/kgsl-2" + tag, 2049);
  EXPECT_EQ(visit(), head + "Kgsl" + by + "\"KGSL\" increasement, peak 4096 -> 6148\n");
  EXPECT_EQ(records.next(), pid + "@@6148@@Event_VssKgsl@@" + name + "@@" + '\0');
  map("/dev/ashmem-2" + tag, 8192);
  EXPECT_EQ(visit(), head + "Ashmem" + by + "\"ASHMEM\" increasement, peak 4096 -> 12288\n");
  EXPECT_EQ(records.next(0), "(nothing)");
}

TEST(Slabs, AreTheMachines) {
  std::map<std::string, int64_t> sizes;
  std::ifstream file("/proc/slabinfo");
  for (std::string line, name; std::getline(file, line);) {
    int64_t active, all, size;
    if (std::istringstream(line) >> name >> active >> all >> size) sizes[name] = size;
  }
  if (sizes.empty()) GTEST_SKIP() << "slabinfo is not readable here";
  tw_slabinfo_t census;
  tw_system_check_slabinfo(&census);
  EXPECT_GT(census.count, 20);
  uint32_t total = 0;
  for (int32_t i = 0; i < census.count; ++i) {
    const tw_slab_entry_t& entry = census.entries[i];
    EXPECT_EQ(entry.obj_size, sizes.at(entry.name)) << entry.name;
    EXPECT_TRUE(i == 0 || census.entries[i - 1].total_bytes >= entry.total_bytes);
    total += entry.total_bytes;
  }
  EXPECT_EQ(total, census.total_bytes);
}

}  // namespace
