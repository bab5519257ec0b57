// Where memory sits: divisions, maps, smaps, slabs, and what the handler says of them.
#include <gtest/gtest.h>

#include <cstring>
#include <iterator>
#include <random>
#include <set>
#include <sstream>

#include "audit/audit_event_handler.h"
#include "audit/process_collector.h"
#include "inspect/maps.h"
#include "inspect/smaps.h"
#include "inspect/system/meminfo.h"
#include "inspect/system/slabinfo.h"
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
#include "support/scan_formats.h"

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

// A line of one word from each field, mostly the first, with a byte changed or cut off at times.
using Words = std::vector<std::string>;
std::string made_line(const std::vector<Words>& fields) {
  static std::mt19937 random{20250711};
  const auto pick = [](size_t count) { return random() % count; };
  std::string text;
  for (const Words& field : fields) text += field[pick(8) == 0 ? pick(field.size()) : 0];
  if (pick(4) == 0 && !text.empty()) text[pick(text.size())] = " \n-:0xgF\t\x80"[pick(10)];
  return text.substr(0, pick(8) == 0 ? pick(text.size() + 1) : 1023);
}

TEST(Formats, HandParsesEqualTheScanFormats) {
  std::istringstream numbers(
      "7f12a4b6c8d0 42 00f1e2d3 7f12 ffffffffffffffff 1ffffffffffffffff 0x1f -1 +a zz 9x ABCdef01 "
      "4294967296 "
      "18446744073709551616 999999999999999999 -5 +7");
  Words number{std::istream_iterator<std::string>(numbers), {}};
  number.insert(number.end(), {"", " b"});
  const Words blank = {" ", "  ", "\t", "", "\v"}, dash = {"-", " -"}, colon = {":", " "};
  const Words word = {"rw-p", "rw-p 00000000 00:00 0", "rw-pqrstuvwx", std::string(400, 'p'), ""};
  const Words path = {"   /lib/libc.so\n", "\n", "", " [anon:a b]\n", " " + std::string(900, '/')};
  const Words device = {"fd", "123456789", "-"};
  const std::vector<Words> area = {number, dash,   number, blank,  word,  blank,  number,
                                   blank,  device, colon,  device, blank, number, path};
  const std::vector<Words> cache = {word, blank, number, blank, number, blank, number, blank, path};
  std::set<int> counts;
  for (int i = 0; i < 100000; ++i) {
    const std::string line = made_line(area);
    vma_desc_t vma;
    const int count = parse_vma(line, &vma);
    ASSERT_TRUE(vma_line_agrees(line, count, vma)) << line;
    counts.insert(count);
  }
  EXPECT_EQ(counts, (std::set<int>{-1, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
  for (int i = 0; i < 50000; ++i) {
    const std::string line = made_line(cache);
    tw_slab_entry_t entry = {};
    const int count = parse_slab(line, &entry);
    ASSERT_TRUE(slab_line_agrees(line, count, entry)) << line;
  }
}

const std::string kStats = "taskwarden stats|";
std::string failed(const std::string& line, int count) {
  return kStats + "-> failed to parse \"" + line +
         "\" of proc 9 as a vma's beginning: " + std::to_string(count) + "\n";
}

TEST(Maps, EndAtTheFirstLineThatIsNoHeader) {
  const std::string kgsl = "1000-3000 rw-s 00000000 00:05 7    /dev/kgsl-3d0\n";
  const std::string long_name = "1000-3000 r--p 0 00:00 0 /" + std::string(1100, 'n') + "\n";
  const std::string long_perms = "1000-3000 " + std::string(40, 'r') + " 0 00:00 0 /dev/ashmem/x\n";
  const std::tuple<std::string, int, uint64_t, uint64_t, std::string> rows[] = {
      {"", 0, 0, 0, ""},
      {kgsl + "5000-6000 r--p 00000000 00:00 0\n" + kgsl, 3, 16, 0, ""},
      {kgsl + long_perms, 2, 8, 8, ""},
      {kgsl + "garbage\n" + kgsl, 0, 77, 77, failed("garbage\n", 0)},
      {kgsl + "\n", 0, 77, 77, failed("\n", -1)},
      {kgsl + "10-20 r--p 0 00:0\n", 0, 77, 77, failed("10-20 r--p 0 00:0\n", 6)},
      {long_name + kgsl, 0, 77, 77, failed(long_name.substr(1023), 0)}};
  for (const auto& [text, areas, kgsl_kb, ashmem_kb, log] : rows) {
    CapturedOutput output;
    tw_process_desc desc = {};
    desc.vss_ashmem_kb = desc.vss_kgsl_kb = 77;
    LineReader lines{std::string_view(text)};
    EXPECT_EQ(tw_maps_parse(9, lines, &desc), areas) << text;
    EXPECT_EQ(std::tie(desc.vss_kgsl_kb, desc.vss_ashmem_kb), std::tie(kgsl_kb, ashmem_kb)) << text;
    EXPECT_EQ(output.log(), log);
  }
}

// One area of 132 kB.
std::string area(const std::string& path, const std::string& keys) {
  return "10000-31000 rw-p 00000000 00:00 0    " + path + "\n" + keys;
}

TEST(Smaps, CountAreasAsTheirFlagsAreRead) {
  const std::string whole =
      area("[stack]", "Size: 132 kB\nRss: 40 kB\nPss: 30 kB\nPss_Anon: 9 kB\nVmFlags: rd wr\n");
  std::vector<std::tuple<std::string, uint64_t, uint32_t, std::string>> rows = {
      {"", 0, 0, ""},
      {whole + whole, 80, 2, ""},
      {whole + area("x", "Size:   132 kB\nRss:  5 kB\n"), 45, 1,
       kStats + "-> proc 9's smaps has a bad tail: \"Rss:  5\"\n"},
      {"0-20000000000 r--p 0 0:0 0 x\nSize: 2147483648 kB\n", 0, 0,
       kStats + ">> inconsistent Size of \"Size: 2147483648\" in proc 9: x80000000, !=x80000000\n"},
      {whole + "VmFlags: rd\n" + whole, 40, 1, failed("VmFlags: rd\n", 0)},
      // The second piece of an overlong header is met inside its area, and passed over.
      {area(std::string(1100, 'n'), "VmFlags: rd\n") + whole, 40, 2, ""}};
  for (const std::string key : {"Size", "Rss", "Pss", "VmFlags"}) {
    rows.emplace_back(whole + area("x", key + ":\t"), 40, 1,
                      kStats + ">> failed to parse the pair: \"" + key + ":\t\"\n" + kStats +
                          ">> failed to get proc 9 smaps's " + key + "!!\n");
  }
  for (const auto& [text, sum, areas, log] : rows) {
    CapturedOutput output;
    Divisions divisions = {};
    const auto& [stack, named] =
        std::tie(divisions[VMA_DIVISION_STACK], divisions[VMA_DIVISION_NAMED]);
    LineReader lines{std::string_view(text)};
    EXPECT_EQ(tw_smaps_parse(9, lines, divisions), sum) << text;
    EXPECT_EQ(stack.vma_count + named.vma_count, areas) << text;
    EXPECT_EQ(stack.pss_kb, 30 * stack.vma_count);
    EXPECT_EQ(output.log(), log);
  }
}

TEST(Slabs, KeepTheFirst256AndRankThemSigned) {
  MadeTree tree;
  CapturedOutput output;
  tw_slabinfo_t census;
  tw_system_check_slabinfo(&census);
  tree.write("slabinfo",
             "slabinfo - version: 2.1\n# name  <active_objs> <num_objs> <objsize> <x>\n"
             "small 100 120 256 16 1\nidle 0 9 64 1\nshort 5 5 5\n"
             "wraps 65536 1 65537 1\nnegative 1 1 -2147483647 1\nhuge 1 1 2147483647 1");
  tw_system_check_slabinfo(&census);
  tw_slabinfo_dump(&census, 5);
  // In all 25600 + 65536 + 2^31 + 1 + 2^31 - 1, wrapped.
  EXPECT_EQ(output.report(),
            "SLAB has 4 entries (size>0), totally 91136 bytes; TOP-5:\n"
            "\t # 1                 huge:      1 2147483647, totalsz: 2147483647\n"
            "\t # 2                wraps:  65536  65537, totalsz: 65536\n"
            "\t # 3                small:    100    256, totalsz: 25600\n"
            "\t # 4             negative:      1 -2147483647, totalsz: -2147483647\n"
            "\t # 5                     :      0      0, totalsz: 0\n");
  std::string many;
  for (int i = 1; i <= 300; ++i) many += "cache " + std::to_string(i) + " 1 1 1\n";
  tree.write("slabinfo", many);
  tw_system_check_slabinfo(&census);
  EXPECT_EQ(output.log(),
            kStats + ">> failed to open slabinfo!!\n" + kStats + ">> too many slab entries!!\n");
  EXPECT_EQ(census.count, 256);
  EXPECT_EQ(census.entries[0].active_objs, 256);
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
