// Where memory sits, and what is said of it: divisions, growth, ranks and listings.
#include <gtest/gtest.h>

#include <cstring>
#include <sstream>

#include "audit/audit_event_handler.h"
#include "audit/process_collector.h"
#include "inspect/system/meminfo.h"
#include "inspect/vma_desc.h"
#include "interest/interest_dump.h"
#include "interest/interest_list.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "proctable/suspicious_dump.h"
#include "support/captured_output.h"
#include "support/fake_clock.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"
#include "support/record_listener.h"

namespace {

using Divisions = vma_division_t[VMA_DIVISION_COUNT];

// Each line a division and names that belong to it, some of which another rule could claim.
constexpr char kNamesByDivision[] = R"(
SHARED OBJECT|/lib/libc.so /dev/kgsl.so [anon:a.so .so
NAMED|/lib/libc.so.6 dex a.TTF /dev [vdso] [heap] [stack:7] /data/dmabuf: xanon:
OAT|/x/boot.oat base.odex base.vdex boot.art /data/arm64/x.dex .dex /dev/ashmem/boot.art
FONT|/f/Roboto.ttf a.otf a.ttc
RESOURCE|hy.hyb icu.dat [anon:libc_malloc].dat
APK|f.jar base.apk /dev/ashmem/x.apk
DALVIK|[anon:dalvik-main [anon:dalvik-
SCUDO PRI|[anon:scudo:primary] [anon:scudo:primary]x
SCUDO SEC|[anon:scudo:secondary]
JEMALLOC|[anon:libc_malloc]
BIONIC ALLOC|[anon:bionic_alloc_small_objects]
STACK|[anon:stack_and_tls:12] [stack]
ANON|[anon:.bss] [anon:a.so] [anon:scudo: [anon:libc_malloc
ASHMEM|/dev/ashmem/CursorWindow /dev/ashmem
KGSL|/dev/kgsl-3d0
DMABUF|/dmabuf:1
DEVNODE|/dev/dmabuf:1 /dev/binderfs/binder /dev/
)";

TEST(Divisions, FollowTheRulesInOrder) {
  std::istringstream lines(kNamesByDivision + 1);
  for (std::string division, paths, path; std::getline(lines, division, '|');) {
    std::getline(lines, paths);
    for (std::istringstream words(paths); words >> path;) {
      vma_desc_t vma = {};
      strcpy(vma.path, path.c_str());
      Divisions divisions;
      const auto index = match_vma_division(divisions, vma) - divisions;
      EXPECT_EQ(vma_division_typename(static_cast<VMA_DIVISION_TYPE>(index)), division) << path;
    }
  }
  for (const int invalid : {-1, 18}) {
    const auto type = static_cast<VMA_DIVISION_TYPE>(invalid);
    EXPECT_STREQ(vma_division_typename(type), "<invalid vma division>");
  }
}

// One area of 132 kB.
std::string area(const std::string& path, const std::string& keys) {
  return "10000-31000 rw-p 00000000 00:00 0    " + path + "\n" + keys;
}

class Explained : public testing::Test {
 protected:
  // Scans and visits all, 3 s after the last time.
  void pass() {
    clock.advance_ms(3000);
    tw_process_list_refresh(list);
    for (auto* at = list->head; at != nullptr;) tw_process_list_iterate(list, at, 1000, &at);
  }
  tw_process_list* list = fresh_table();
  FakeClock clock;
  MadeTree tree;
  CapturedOutput output;
};

TEST_F(Explained, ResidentSizeByDivision) {
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

TEST_F(Explained, SlabsAndListings) {
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
  for (const MadeProcess& row : {MadeProcess{.pid = 301, .ppid = 1, .threads = 90},
                                 {.pid = 302, .ppid = 3, .threads = 50, .rss = 204800},
                                 {.pid = 303, .threads = 51},
                                 {.pid = 304, .name = "interesting", .rss = 204801, .hwm = 204802},
                                 {.pid = 305, .fds = 201},
                                 {.pid = 306, .fds = 200}}) {
    tree.put(row);
    tw_process_list_refresh(list);
  }
  tree.write("304/smaps", area("[stack]", "Rss: 8 kB\nVmFlags:\n"));
  pass();
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
TEST_F(Explained, TheLargestAreReadCloser) {
  const auto put = [&](int pid, uint64_t rss) {
    tree.put({.pid = pid, .rss = rss, .hwm = 5000});
    tree.write(std::to_string(pid) + "/maps", area("/dev/kgsl", ""));
  };
  const auto& first = list->entries[301];
  const auto& sixth = list->entries[306];
  for (int i = 1; i <= 6; ++i) put(300 + i, i == 6 ? 1 : 1000 + static_cast<uint64_t>(i));
  pass();
  pass();
  list->native_collector->members = {};  // whatever the order of the directory, 306 is out
  pass();
  pass();
  EXPECT_EQ(std::pair(first.desc.vss_kgsl_kb, sixth.desc.vss_kgsl_kb), std::pair(132UL, 0UL));
  put(306, 5000);
  output.report();
  pass();
  EXPECT_NE(output.report().find("\t [*  1] pid 306 \"app#306\": RSS 5000\n\t [   2] pid 305"),
            std::string::npos);
  EXPECT_TRUE(sixth.interested && !first.interested);
  tree.write("301/maps", "");  // what was read last stays
  pass();
  EXPECT_EQ(std::pair(first.desc.vss_kgsl_kb, sixth.desc.vss_kgsl_kb), std::pair(132UL, 132UL));
}

}  // namespace
