// Where memory sits: divisions, maps, smaps, slabs, and what the handler says of them.
#include <gtest/gtest.h>

#include <cstring>
#include <random>
#include <set>
#include <sstream>

#include "audit/audit_event_handler.h"
#include "audit/entry_blocks.h"
#include "audit/process_collector.h"
#include "inspect/maps.h"
#include "inspect/smaps.h"
#include "inspect/system/meminfo_record.h"
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
  Divisions divisions = {};
  const auto name_of = [&](const std::string& path) {
    vma_desc_t vma = {};
    strcpy(vma.path, path.c_str());
    const auto index = match_vma_division(divisions, vma) - divisions;
    return std::string(vma_division_typename(static_cast<VMA_DIVISION_TYPE>(index)));
  };
  EXPECT_EQ(name_of(""), "UNNAMED");
  std::istringstream lines(kNamesByDivision + 1);
  for (std::string division, paths, path; std::getline(lines, division, '|');) {
    std::getline(lines, paths);
    for (std::istringstream words(paths); words >> path;) {
      EXPECT_EQ(name_of(path), division) << path;
    }
  }
  for (const int invalid : {-1, 18}) {
    EXPECT_STREQ(vma_division_typename(static_cast<VMA_DIVISION_TYPE>(invalid)),
                 "<invalid vma division>");
  }
}

// Lines put together from fields that are mostly regular: the first of each, or one of the rest.
class LineMaker {
 public:
  explicit LineMaker(std::vector<std::vector<std::string>> fields) : fields_(std::move(fields)) {}
  std::string line() {
    std::string text;
    for (const auto& field : fields_) {
      text += field[pick(8) == 0 ? pick(field.size()) : 0];
    }
    if (pick(4) == 0 && !text.empty()) {
      text[pick(text.size())] = " \n-:0xgF\t\x80"[pick(10)];
    }
    return text.substr(0, pick(8) == 0 ? pick(text.size() + 1) : 1023);
  }

 private:
  size_t pick(size_t count) { return random_() % count; }
  const std::vector<std::vector<std::string>> fields_;
  std::mt19937 random_{20250711};
};

TEST(Formats, HandParsesEqualTheScanFormats) {
  const std::vector<std::string> hex = {
      "7f12", "ffffffffffffffff", "1ffffffffffffffff", "0x1f", "-1", "+a", " b", "",
      "zz",   "ABCdef01"};
  const std::vector<std::string> decimal = {
      "42", "4294967296", "18446744073709551616", "999999999999999999", "-5", "+7", "", "x", "9x"};
  const std::vector<std::string> blank = {" ", "  ", "\t", "", "\v"};
  const std::vector<std::string> word = {"rw-p", "rw-pqrstuvwx", std::string(400, 'p'), ""};
  const std::vector<std::string> path = {
      "   /lib/libc.so\n", "\n", "", " [anon:a b]\n", " " + std::string(900, '/'),
      " a (deleted)\n"};
  const std::vector<std::string> dash = {"-", " -"}, device = {"fd", "123456789", "-"},
                                 colon = {":", " "};
  LineMaker areas({hex, dash, hex, blank, word, blank, hex, blank, device, colon, device, blank,
                   decimal, path});
  std::set<int> counts;
  char words[2][1024];
  for (int i = 0; i < 100000; ++i) {
    const std::string line = areas.line();
    vma_desc_t got;
    vma_desc_t want = {};
    words[0][0] = words[1][0] = '\0';
    const int count = sscanf(line.c_str(), TW_VMA_FORMAT, &want.start, &want.end, words[0],
                             &want.offset, &want.dev_major, &want.dev_minor, &want.inode, words[1]);
    ASSERT_EQ(parse_vma(line.c_str(), &got), count) << line;
    counts.insert(count);
    const auto numbers = [](const vma_desc_t& v) {
      return std::tuple(v.start, v.end, v.offset, v.dev_major, v.dev_minor, v.inode);
    };
    ASSERT_EQ(numbers(got), numbers(want)) << line;
    ASSERT_EQ(got.perms, std::string(words[0]).substr(0, 7)) << line;
    ASSERT_EQ(got.path, std::string(words[1]).substr(0, 511)) << line;
  }
  EXPECT_EQ(counts, (std::set<int>{-1, 0, 1, 2, 3, 4, 5, 6, 7, 8}));
  LineMaker caches({{"dentry", std::string(99, 'd'), ""},
                    blank,
                    decimal,
                    blank,
                    decimal,
                    blank,
                    decimal,
                    blank,
                    {"21", ""},
                    path});
  for (int i = 0; i < 50000; ++i) {
    const std::string line = caches.line();
    tw_slab_entry_t got = {};
    tw_slab_entry_t want = {};
    int32_t objects;
    const int count = sscanf(line.c_str(), TW_SLAB_FORMAT, words[0], &want.active_objs, &objects,
                             &want.obj_size, words[1]);
    ASSERT_EQ(parse_slab(line.c_str(), &got), count) << line;
    ASSERT_TRUE(count < 5 ||
                (got.active_objs == want.active_objs && got.obj_size == want.obj_size &&
                 got.name == std::string(words[0]).substr(0, 63)))
        << line;
  }
}

std::string failed(const std::string& line, int count) {
  return "taskwarden stats|-> failed to parse \"" + line +
         "\" of proc 9 as a vma's beginning: " + std::to_string(count) + "\n";
}

TEST(Maps, EndAtTheFirstLineThatIsNoHeader) {
  const std::string kgsl = "1000-3000 rw-s 00000000 00:05 7    /dev/kgsl-3d0\n";
  const std::string long_name = "1000-3000 r--p 0 00:00 0 /" + std::string(1100, 'n') + "\n";
  const std::string long_perms = "1000-3000 " + std::string(40, 'r') + " 0 00:00 0 /dev/ashmem/x\n";
  const struct {
    std::string text;
    int areas;
    uint64_t kgsl_kb, ashmem_kb;
    std::string log;
  } rows[] = {{"", 0, 0, 0, ""},
              {kgsl + "5000-6000 r--p 00000000 00:00 0\n" + kgsl, 3, 16, 0, ""},
              {kgsl + kgsl.substr(0, kgsl.size() - 1), 2, 16, 0, ""},
              {kgsl + long_perms, 2, 8, 8, ""},
              {kgsl + kgsl + "garbage\n" + kgsl, 0, 77, 77, failed("garbage\n", 0)},
              {kgsl + "\n", 0, 77, 77, failed("\n", -1)},
              {kgsl + "10-20 r--p 0 00:0\n", 0, 77, 77, failed("10-20 r--p 0 00:0\n", 6)},
              {long_name + kgsl, 0, 77, 77, failed(long_name.substr(1023), 0)}};
  for (const auto& row : rows) {
    CapturedOutput output;
    tw_process_desc desc = {};
    desc.vss_dalvik_kb = desc.vss_heap_kb = desc.vss_ashmem_kb = desc.vss_kgsl_kb =
        desc.vss_dmabuf_kb = 77;
    LineReader lines{std::string_view(row.text)};
    EXPECT_EQ(tw_maps_parse(9, lines, &desc), row.areas) << row.text;
    EXPECT_EQ(desc.vss_kgsl_kb, row.kgsl_kb) << row.text;
    EXPECT_EQ(desc.vss_ashmem_kb, row.ashmem_kb) << row.text;
    EXPECT_EQ(output.log(), row.log);
  }
}

// One area of 132 kB.
std::string area(const std::string& path, const std::string& keys) {
  return "10000-31000 rw-p 00000000 00:00 0    " + path + "\n" + keys;
}

TEST(Smaps, CountAreasAsTheirFlagsAreRead) {
  const std::string whole = area("[stack]",
                                 "Size:    132 kB\nRss:    40 kB\nPss:   30 kB\nPss_Anon: 9 "
                                 "kB\nSwapPss: 9 kB\nVmFlags: rd wr\n");
  const std::string stats = "taskwarden stats|";
  const auto pair = [&](const std::string& line, const std::string& key) {
    return stats + ">> failed to parse the pair: \"" + line + "\"\n" + stats +
           ">> failed to get proc 9 smaps's " + key + "!!\n";
  };
  const struct {
    std::string text;
    uint64_t sum;
    uint32_t areas;
    std::string log;
  } rows[] = {
      {"", 0, 0, ""},
      {whole + whole, 80, 2, ""},
      {whole + area("x", "Size:   132 kB\nRss:  5 kB\n"), 45, 1,
       stats + "-> proc 9's smaps has a bad tail: \"Rss:  5\"\n"},
      {whole + area("x", "Size:   128 kB\nRss:  5 kB\n"), 40, 1,
       stats + ">> inconsistent Size of \"Size:   128\" in proc 9: x80, !=x84\n"},
      {"0-20000000000 r--p 0 0:0 0 x\nSize: 2147483648 kB\n", 0, 0,
       stats + ">> inconsistent Size of \"Size: 2147483648\" in proc 9: x80000000, !=x80000000\n"},
      {whole + area("x", "Size: "), 40, 1, pair("Size: ", "Size")},
      {whole + area("x", "Rss:"), 40, 1, pair("Rss:", "Rss")},
      {whole + area("x", "Pss:\t"), 40, 1, pair("Pss:\t", "Pss")},
      {whole + area("x", "VmFlags:"), 40, 1, pair("VmFlags:", "VmFlags")},
      {whole + "VmFlags: rd\n" + whole, 40, 1, failed("VmFlags: rd\n", 0)},
      // The second piece of an overlong header is met inside its area, and passed over.
      {"10000-31000 r--p 0 0:0 0 /" + std::string(1100, 'n') + "\nVmFlags: rd\n", 0, 1, ""}};
  for (const auto& row : rows) {
    CapturedOutput output;
    Divisions divisions = {};
    LineReader lines{std::string_view(row.text)};
    EXPECT_EQ(tw_smaps_parse(9, lines, divisions), row.sum) << row.text;
    EXPECT_EQ(divisions[VMA_DIVISION_STACK].vma_count + divisions[VMA_DIVISION_NAMED].vma_count,
              row.areas)
        << row.text;
    EXPECT_EQ(divisions[VMA_DIVISION_STACK].pss_kb, 30 * divisions[VMA_DIVISION_STACK].vma_count);
    EXPECT_EQ(output.log(), row.log);
  }
}

TEST(Slabs, KeepTheFirst256AndRankThemSigned) {
  MadeTree tree;
  CapturedOutput output;
  const std::string head =
      "slabinfo - version: 2.1\n# name  <active_objs> <num_objs> <objsize> <x>\n";
  tw_slabinfo_t census;
  EXPECT_EQ(tw_system_check_slabinfo(&census), 0U);
  EXPECT_EQ(output.log(), "taskwarden stats|>> failed to open slabinfo!!\n");
  tree.write("slabinfo",
             head +
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
  tw_slabinfo_dump(&census, 0);
  EXPECT_EQ(output.report(), "SLAB has 4 entries (size>0), totally 91136 bytes; TOP-0:\n");
  std::string many;
  for (int i = 1; i <= 300; ++i) {
    many += "cache" + std::to_string(i) + " " + std::to_string(i) + " 1 1 1\n";
  }
  tree.write("slabinfo", many);
  EXPECT_EQ(output.log(), "");
  tw_system_check_slabinfo(&census);
  EXPECT_EQ(output.log(), "taskwarden stats|>> too many slab entries!!\n");
  EXPECT_EQ(census.count, 256);
  EXPECT_STREQ(census.entries[0].name, "cache256");
}

class Explained : public testing::Test {
 protected:
  std::string raise(int32_t source, int32_t id, void* data) {
    AuditEvent event = {.id = id, .source = source, .data = data};
    AuditEventHandler().onEventIncoming(&event);
    return output.report();
  }
  tw_process_list* list = fresh_table();
  MadeTree tree;
  CapturedOutput output;
};

TEST_F(Explained, ResidentSizeByDivision) {
  RecordListener listener;
  tw_process_entry entry = {};
  entry.pid = 9;
  entry.desc.vm_rss_kb = 5000;
  strcpy(entry.desc.name, "app#9");
  const auto smaps = [](int dmabuf, int fonts, int pss) {
    const auto keys = [&](int rss) {
      return "Size: 132 kB\nRss: " + std::to_string(rss) + " kB\nPss: " + std::to_string(pss) +
             " kB\nVmFlags:\n";
    };
    return area("/dmabuf:", keys(dmabuf)) + area("a.ttf", keys(fonts));
  };
  const std::string headline = "-> RSS is too large in proc 9 \"app#9\": 5000\n";
  const struct {
    std::string smaps, rest;
  } rows[] = {
      {smaps(100, 100, 1), ""},
      {smaps(100, 100, 1), ""},
      {smaps(2148, 90, 1),
       "\t #13: \"    DMABUF\" eaten     2148 kB in   1 areas; increased     2048 kB, 0 areas\n"
       "\t -> THE MAX INCREASE is \"DMABUF\" (13)\n"},
      {smaps(2149, 91, 1) + smaps(0, 0, 1),
       "\t #09: \"      FONT\" eaten       91 kB in   2 areas; increased        1 kB, 1 areas\n"
       "\t #13: \"    DMABUF\" eaten     2149 kB in   2 areas; increased        1 kB, 1 areas\n"
       "\t -> THE MAX INCREASE is \"FONT\" (9)\n"},
      {smaps(2149, 91, 7), "\t -> THE MAX INCREASE is \"DALVIK\" (0)\n"},
      {smaps(2149, 91, 7), ""}};
  for (const auto& row : rows) {
    tree.write("9/smaps", row.smaps);
    EXPECT_EQ(raise(AUDIT_SOURCE_PROCENTRY, Event_ResidentSize, &entry), headline + row.rest);
    EXPECT_EQ(listener.next(0), row.rest.empty()
                                    ? "(nothing)"
                                    : std::string("9@@5000@@Event_ResidentSize@@app#9@@") + '\0');
  }
  EXPECT_EQ(raise(AUDIT_SOURCE_PROCENTRY, Event_ProcExited, &entry), "");
  EXPECT_EQ(entry.divisions_block, nullptr);
}

TEST_F(Explained, SlabsAndListings) {
  FakeClock clock;
  tree.write("slabinfo", "dentry 3 3 100 1\n");
  tw_meminfo_t memory = {};
  EXPECT_TRUE(raise(AUDIT_SOURCE_MEMINFO, AuditEvent_LowOnMemory, &memory).empty());
  const std::string census = raise(AUDIT_SOURCE_MEMINFO, AuditEvent_SlabUnreclaimSize, &memory);
  EXPECT_TRUE(
      census.starts_with("SLAB has 1 entries (size>0), totally 300 bytes; TOP-10:\n\t # 1          "
                         "     dentry:      3    100, totalsz: 300\n"));
  EXPECT_EQ(std::count(census.begin(), census.end(), '\n'), 11);

  interest_builtin_add("interesting");
  const MadeProcess rows[] = {{.pid = 301, .ppid = 1, .threads = 90},
                              {.pid = 302, .ppid = 3, .threads = 50, .rss = 204800},
                              {.pid = 303, .threads = 51},
                              {.pid = 304, .name = "interesting", .rss = 204801, .hwm = 204802},
                              {.pid = 305, .fds = 201},
                              {.pid = 306, .fds = 200}};
  for (const MadeProcess& row : rows) {
    tree.put(row);
    EXPECT_EQ(tw_process_list_refresh(list), 0);
  }
  tree.write("304/smaps", area("[stack]", "Rss: 8 kB\nVmFlags:\n"));
  tw_process_entry* cursor = nullptr;
  tw_process_list_iterate(list, list->head, 1000, &cursor);
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
      "Process 304 summary of smaps:\n\t          DALVIK: VSS        0, RSS      0, PSS      0,    "
      "0 VMAs\n"));
  EXPECT_NE(dump.find("\t           STACK: VSS      132, RSS      8, PSS      0,    1 VMAs\n"),
            std::string::npos);
  EXPECT_TRUE(dump.ends_with("UNNAMED: VSS        0, RSS      0, PSS      0,    0 VMAs\n\n"));
}

// Ranks bring interest, and interest the reading of maps, from the visit after the mark on.
TEST_F(Explained, TheLargestAreReadCloser) {
  FakeClock clock;
  const auto pass = [&] {
    clock.advance_ms(3000);
    tw_process_list_refresh(list);
    tw_process_entry* cursor = list->head;
    while (cursor != nullptr) {
      tw_process_list_iterate(list, cursor, 1000, &cursor);
    }
  };
  for (int pid = 301; pid <= 306; ++pid) {
    tree.put({.pid = pid, .rss = pid == 306 ? 1UL : 1000UL + static_cast<uint64_t>(pid)});
    tree.write(std::to_string(pid) + "/maps", area("/dev/kgsl", ""));
  }
  pass();
  pass();
  list->native_collector->members = {};  // whatever the order of the directory, 306 is out
  pass();
  EXPECT_EQ(list->native_collector->members.size(), 5U);
  pass();
  EXPECT_EQ(list->entries[301].desc.vss_kgsl_kb, 132U);
  EXPECT_EQ(list->entries[306].desc.vss_kgsl_kb, 0U);
  tree.put({.pid = 306, .rss = 5000, .hwm = 5000});
  tree.write("306/maps", area("/dev/kgsl", ""));
  output.report();
  pass();
  EXPECT_NE(output.report().find("\t [*  1] pid 306 \"app#306\": RSS 5000\n\t [   2] pid 305"),
            std::string::npos);
  EXPECT_TRUE(list->entries[306].interested && !list->entries[301].interested);
  tree.write("301/maps", "");
  pass();
  EXPECT_EQ(list->entries[306].desc.vss_kgsl_kb, 132U);
  EXPECT_EQ(list->entries[301].desc.vss_kgsl_kb, 132U);  // the last that was read
}

}  // namespace
