// Real processes map memory and grow, and what is said of them is what the kernel says.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <deque>
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

// Files of a size without content, gone with their owner.
class SparseFiles {
 public:
  ~SparseFiles() {
    for (const std::string& path : paths_) {
      std::filesystem::remove(path);
    }
  }
  const std::string& make(const std::string& path, uint64_t kb) {
    std::ofstream(path).flush();
    std::filesystem::resize_file(path, kb << 10);
    return paths_.emplace_back(path);
  }

 private:
  std::deque<std::string> paths_;
};

// A child that stands still, so that two readings of it agree.
class Stopped {
 public:
  explicit Stopped(pid_t pid) : pid_(pid) {
    kill(pid, SIGSTOP);
    waitpid(pid, nullptr, WUNTRACED);
  }
  ~Stopped() { kill(pid_, SIGCONT); }

 private:
  pid_t pid_;
};

std::string tag(const std::string& name) {
  return name + "-tw" + std::to_string(getpid());
}

TEST(LiveMemory, DivisionsAddUpToTheKernelsSums) {
  const std::string temp = std::filesystem::temp_directory_path() / tag("");
  SparseFiles files;
  Child child("app");
  std::map<int, uint64_t> mapped = {{VMA_DIVISION_APK, 400},
                                    {VMA_DIVISION_FONT, 52},
                                    {VMA_DIVISION_RESOURCE, 8},
                                    {VMA_DIVISION_OAT, 12}};
  child.command("map " + files.make(temp + ".jar", 300));
  child.command("map " + files.make(temp + ".apk", 100));
  child.command("map " + files.make(temp + ".ttf", 52));
  child.command("map " + files.make(temp + ".dat", 8));
  child.command("map " + files.make(temp + ".odex", 12));
  if (getuid() == 0) {
    mapped.insert({{VMA_DIVISION_ASHMEM, 16}, {VMA_DIVISION_KGSL, 24}, {VMA_DIVISION_DEVNODE, 28}});
    child.command("map " + files.make(tag("/dev/ashmem"), 16));
    child.command("map " + files.make(tag("/dev/kgsl-3d0"), 24));
    child.command("map " + files.make(tag("/dev/other"), 28));
  }
  child.command("anon 2048");
  const Stopped stopped(child.pid());
  const std::string proc = "/proc/" + std::to_string(child.pid());
  uint64_t vss = 0;
  uint32_t areas = 0;
  std::ifstream maps(proc + "/maps");
  for (std::string line; std::getline(maps, line); ++areas) {
    vss += (std::stoull(line.substr(line.find('-') + 1), nullptr, 16) -
            std::stoull(line, nullptr, 16)) >>
           10;
  }
  uint64_t rss = 0;
  std::ifstream smaps(proc + "/smaps");
  for (std::string line; std::getline(smaps, line);) {
    rss += line.starts_with("Rss:") ? std::stoull(line.substr(4)) : 0;
  }
  vma_division_t divisions[VMA_DIVISION_COUNT];
  EXPECT_EQ(tw_process_check_smaps(child.pid(), divisions), rss);
  vma_division_t sum = {};
  for (const vma_division_t& division : divisions) {
    sum.vss_kb += division.vss_kb;
    sum.rss_kb += division.rss_kb;
    sum.vma_count += division.vma_count;
  }
  EXPECT_EQ(std::tie(sum.vss_kb, sum.rss_kb, sum.vma_count), std::tie(vss, rss, areas));
  for (const auto& [division, kb] : mapped) {
    EXPECT_EQ(divisions[division].vss_kb, kb) << division;
  }
  EXPECT_GE(divisions[VMA_DIVISION_UNNAMED].rss_kb, 2048U);
  tw_process_desc desc = {};
  EXPECT_EQ(tw_process_check_maps(child.pid(), &desc), static_cast<int32_t>(areas));
  EXPECT_EQ(desc.vss_kgsl_kb, mapped[VMA_DIVISION_KGSL]);
  EXPECT_EQ(desc.vss_ashmem_kb, mapped[VMA_DIVISION_ASHMEM]);
}

// Visits one child, 3 s after the last time.
class Watched {
 public:
  Watched() { own_network(); }
  std::string after(const std::string& command) {
    if (!command.empty()) {
      child.command(command);
    }
    const Stopped stopped(child.pid());
    clock.advance_ms(3000);
    tw_process_list_refresh(list);
    tw_process_entry* cursor = nullptr;
    tw_process_list_iterate(list, &list->entries[child.pid()], 0, &cursor);
    return output.report();
  }
  RecordListener records;
  tw_process_list* list = fresh_table();
  FakeClock clock;
  CapturedOutput output;
  Child child{"interesting"};
};

TEST(LiveMemory, ResidentGrowthNamesItsDivision) {
  Watched watched;
  const std::string pid = std::to_string(watched.child.pid());
  watched.after("");
  watched.after("");
  const std::string head =
      "RSS is too large in proc " + pid + " \"interesting#" + pid + "\": \\d+\n";
  EXPECT_TRUE(std::regex_search(watched.after("anon 30720"), std::regex(head + "$")));
  EXPECT_EQ(watched.records.next(0), "(nothing)");
  const std::string second = watched.after("anon 30720");
  EXPECT_TRUE(std::regex_search(
      second, std::regex(head + "(\t #.*\n)*\t #17: \"   UNNAMED\" eaten +\\d+ kB in +\\d+ areas; "
                                "increased +30\\d\\d\\d kB, \\d areas\n"
                                "\t -> THE MAX INCREASE is \"UNNAMED\" \\(17\\)\n$")))
      << second;
  const uint64_t rss = watched.list->entries[watched.child.pid()].desc.vm_rss_kb;
  EXPECT_EQ(watched.records.next(), pid + "@@" + std::to_string(rss) +
                                        "@@Event_ResidentSize@@interesting#" + pid + "@@" + '\0');
}

TEST(LiveMemory, DeviceMemoryOfAnInterestingProcess) {
  if (getuid() != 0) {
    GTEST_SKIP() << "makes files under /dev";
  }
  interest_builtin_add("interesting#");
  SparseFiles files;
  Watched watched;
  const std::string pid = std::to_string(watched.child.pid());
  watched.child.command("map " + files.make(tag("/dev/kgsl"), 4096));
  watched.child.command("map " + files.make(tag("/dev/ashmem"), 4096));
  watched.after("");
  watched.after("");
  EXPECT_EQ(watched.after(""), "");
  const auto block = [&](const char* event, const char* division, const char* now) {
    return "\n" + std::string(55, '-') + "\n" + event + "\n-> audit evnet by proc " + pid +
           " \"interesting#" + pid + "\": VSS \"" + division + "\" increasement, peak 4096 -> " +
           now + "\n";
  };
  EXPECT_EQ(watched.after("map " + files.make(tag("/dev/kgsl-2"), 2049)),
            block("Event_VssKgsl", "KGSL", "6148"));
  EXPECT_EQ(watched.records.next(),
            pid + "@@6148@@Event_VssKgsl@@interesting#" + pid + "@@" + '\0');
  EXPECT_EQ(watched.after("map " + files.make(tag("/dev/ashmem-2"), 8192)),
            block("Event_VssAshmem", "ASHMEM", "12288"));
  EXPECT_EQ(watched.records.next(0), "(nothing)");
}

TEST(LiveMemory, SlabsAreTheMachines) {
  std::map<std::string, int64_t> before;
  std::ifstream file("/proc/slabinfo");
  std::string name;
  int64_t active, all, size;
  for (std::string line; std::getline(file, line);) {
    if (std::istringstream(line) >> name >> active >> all >> size) {
      before[name] = size;
    }
  }
  if (before.empty()) {
    GTEST_SKIP() << "slabinfo is not readable here";
  }
  tw_slabinfo_t census;
  tw_system_check_slabinfo(&census);
  EXPECT_GT(census.count, 20);
  uint32_t total = 0;
  for (int32_t i = 0; i < census.count; ++i) {
    const tw_slab_entry_t& entry = census.entries[i];
    EXPECT_EQ(entry.obj_size, before.at(entry.name)) << entry.name;
    EXPECT_TRUE(i == 0 || census.entries[i - 1].total_bytes >= entry.total_bytes);
    total += entry.total_bytes;
  }
  EXPECT_EQ(total, census.total_bytes);
}

}  // namespace
