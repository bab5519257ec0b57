// The readers of process files, on made files: what each leaves behind, reports and logs.
#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <gtest/gtest.h>

#include <sstream>

#include "inspect/maps.h"
#include "inspect/open_files.h"
#include "inspect/smaps.h"
#include "inspect/status.h"
#include "inspect/system/meminfo.h"
#include "inspect/system/slabinfo.h"
#include "inspect/threads.h"
#include "inspect/vma_desc.h"
#include "support/captured_output.h"
#include "support/fresh_table.h"
#include "support/made_tree.h"

using android::base::StringPrintf;
using namespace std::string_literals;
using Text = const std::string&;
const std::string kPiece(1023, 'x');  // the most that one line holds

static std::string failed(Text what) {
  return "taskwarden stats|>> failed to " + what + "\n";
}
static std::string unpaired(Text line, Text key) {
  return failed("parse the pair: \"" + line + "\"") + failed("get " + key + "!!");
}

// Rows of a text and what its reading leaves, '!' if it reports, and what it logs.
static void expect(std::function<std::string(Text)> read, std::map<std::string, std::string> rows) {
  CapturedOutput output;
  for (const auto& [text, wanted] : rows) {
    const std::string left = read(text);
    EXPECT_EQ(left + (output.report().empty() ? "" : "!") + output.log(), wanted) << text;
  }
}

TEST(Status, IsReadKeyByKeyUntilOneFails) {
  MadeTree tree({{.pid = 3}});
  const auto read = [&](Text text) {
    tw_process_desc d = {"o", 1, '?', 5, 2, 3, 4, 0, 0, 0, 0, 0, 0};
    tree.write("3/status", text), tw_process_check_status(3, &d);
    return StringPrintf("%s %c %d %d %jd %jd %d ", d.name, d.state, d.ppid, d.fd_size,
                        intmax_t(d.vm_hwm_kb), intmax_t(d.vm_rss_kb), d.threads);
  };
  const std::string same = "o ? 1 2 3 4 5 ";
  for (Text key : {"Name"s, "State"s, "Pid"s, "PPid"s, "FDSize"s, "VmHWM"s, "VmRSS"s, "Threads"s})
    expect(read, {{" " + key + ":1\nTracer" + key + ":1\n" + key + " :1\n" + key + ":\t ",
                   same + unpaired(key + ":\t ", "proc 3's " + key)}});
  expect(read,
         {{"Pid: -1\nPPid: 7", same + "taskwarden stats|>> inconsistent pid: 3, 4294967295\n"}});
  expect([&](Text text) { return tree.write("3/cmdline", text), read("Name: p\n"); },
         {{"a \n\0c"s, "a \n#3 ? 1 2 3 4 5 "}, {std::string(9000, 'c'), "p#3 ? 1 2 3 4 5 "}});
  tree.remove(3);
  expect([&](Text) { return tw_process_check_status(3, nullptr), ""; },
         {{"", failed("open proc 3's status!!")}});
}

TEST(Meminfo, IsReadUpToTheSlabAndPolledWith) {
  fresh_table();
  const auto read = [](Text text) {
    MadeTree tree;
    if (text != "-") tree.write("meminfo", text);
    tw_meminfo_t m = {9, 9, 9, 9};
    tw_system_check_meminfo(&m);
    return StringPrintf("%d %d %d ", m.mem_total_kb, m.mem_free_kb, m.sunreclaim_kb);
  };
  expect(read, {{"-", "0 0 0 " + failed("open meminfo!!")},
                {"MemTotal:1\nMemFree:", "1 0 0 !" + unpaired("MemFree:", "MemFree")},
                {"MemFree:1048577\nSUnrec", "0 1048577 0 " + unpaired("SUnrec", "SUnreclaim")},
                {"MemTota", "0 0 0 !" + unpaired("MemTota", "MemTotal")},
                {"MemAvail", "0 0 0 !" + unpaired("MemAvail", "MemAvailable")}});
}

// Each line a division and names that belong to it, some of which another rule could claim.
static constexpr char kNamesByDivision[] = R"(
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
      vma_division_t divisions[VMA_DIVISION_COUNT];
      const auto index = match_vma_division(divisions, vma) - divisions;
      EXPECT_EQ(vma_division_typename(static_cast<VMA_DIVISION_TYPE>(index)), division) << path;
    }
  }
  for (const int invalid : {-1, 18}) {
    const auto type = static_cast<VMA_DIVISION_TYPE>(invalid);
    EXPECT_STREQ(vma_division_typename(type), "<invalid vma division>");
  }
}

static std::string no_header(Text line, int conversions) {
  return "taskwarden stats|-> failed to parse \"" + line +
         "\" of proc 9 as a vma's beginning: " + std::to_string(conversions) + "\n";
}

TEST(Areas, AreReadUpToWhatIsNone) {
  MadeTree tree;
  const auto map = [&](Text text) {
    tw_process_desc d = {};
    tree.write("9/maps", text);
    const int areas = tw_process_check_maps(9, &d);
    return StringPrintf("%d %d ", areas, int(d.vss_kgsl_kb));
  };
  const std::string kgsl = "1000-3000 rw-s 00000000 00:05 7    /dev/kgsl-3d0\n";
  expect(map, {{"", "0 0 "},
               {kgsl + kgsl, "2 16 "},
               {kgsl + "\n", "0 0 " + no_header("\n", -1)},
               {"10-20 r--p 0 00:0\n", "0 0 " + no_header("10-20 r--p 0 00:0\n", 6)}});
  vma_division_t divisions[VMA_DIVISION_COUNT] = {};
  const auto sum = [&](Text text) {
    tree.write("9/smaps", text);
    const int resident = static_cast<int>(tw_process_check_smaps(9, divisions));
    return StringPrintf("%d %d ", resident, int(divisions[VMA_DIVISION_KGSL].pss_kb));
  };
  const std::string whole = kgsl + "Size: 8 kB\nRss: 4 kB\nPss: 3 kB\nVmFlags: rd wr\n";
  for (Text key : {"Size"s, "Rss"s, "Pss"s, "VmFlags"s})
    expect(sum,
           {{whole + kgsl + key + ":\t", "4 3 " + unpaired(key + ":\t", "proc 9 smaps's " + key)}});
  expect(sum, {{whole + "VmFlags: rd\n", "4 3 " + no_header("VmFlags: rd\n", 0)},
               {whole + kgsl + "Rss:  5 kB\n",
                "9 3 taskwarden stats|-> proc 9's smaps has a bad tail: \"Rss:  5\"\n"},
               {"0-20000000000 r--p 0 0:0 0 x\nSize: 2147483648 kB\n",
                "0 0 taskwarden stats|>> inconsistent Size of \"Size: 2147483648\" in proc 9: "
                "x80000000, !=x80000000\n"}});
  tree.remove(9);
  expect(
      [&](Text) {
        return tw_process_check_maps(9, nullptr), tw_process_check_smaps(9, divisions), "";
      },
      {{"", failed("open proc 9's maps!!") + failed("open proc 9's smaps!!")}});
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
            failed("open slabinfo!!") + "taskwarden stats|>> too many slab entries!!\n");
  EXPECT_EQ(std::pair(census.count, census.entries[0].active_objs), std::pair(256, 256));
}

static std::string shown(const StringCounter& counter) {
  std::string all;
  for (const auto& [name, count] : counter) all += name + "=" + std::to_string(count) + " ";
  return all;
}

TEST(Inventories, FoldCountListAndCompare) {
  CapturedOutput output;
  StringCounter files, threads, before;
  char id = '0';
  MadeTree tree({{.pid = 3, .threads = 2, .fds = 400}});
  tree.link("3/task/99/comm", "../3/comm");
  for (Text comm :
       {"Binder:1\n"s, "Binder\n"s, "HwBinder:1\n"s, "POSIX timer\n"s, "abc"s, ""s, kPiece})
    tree.write("3/task/1"s + id++ + "/comm", comm);
  for (Text target : {"socket"s, "pipe:"s, "/dev/ashmem x"s, "/dev/ashme"s, kPiece})
    tree.link("3/fd/t"s + id++, target);
  for (int i = 0; i < 21; ++i) tree.link("3/fd/x" + std::to_string(i), i < 11 ? "/b" : "\xff");
  for (Text no : {"fd/no"s, "task/no/comm"s, "task/98"s}) tree.write("3/" + no, "");
  for (StringCounter* counter : {&files, &threads, &before}) counter->add("<SOCKET>", 500);
  before.add("/b", 4), before.add("\xff", 10), before.add("gone");
  tw_process_desc desc = {"", 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 99};
  tw_process_check_openfiles(3, &desc, nullptr), tw_process_check_threads(3, nullptr);
  EXPECT_EQ(std::to_string(desc.open_files) + output.report(), "426");
  tw_process_check_openfiles(3, nullptr, &files), tw_process_check_threads(3, &threads);
  const std::string rare = "/dev/ashme=1 <ASHMEM>=1 <PIPE>=1 ", cut = kPiece.substr(768) + "=1 ";
  EXPECT_EQ(shown(files), "/b=11 " + rare + "<SOCKET>=400 socket=1 x" + cut + "\xff=10 ");
  EXPECT_EQ(shown(StringCounter_diff(&before, &files)), "/b=7 " + rare + "socket=1 x" + cut);
  EXPECT_EQ(shown(threads),
            "<BINDER THREAD>=1 <HWBINDER THREAD>=1 <POSIX TIMER>=1 <THREAD>=2 "
            "<UNNAMED THREAD>=2 Binder=1 ab=1 " +
                cut);
  EXPECT_EQ(
      output.report(),
      "Dump openfiles' map of proc 3, 8 kinds of files\n"
      "And, only the file opened more than 10 will be list:\n\t \"/b\": 11\n\t \"<SOCKET>\": 400\n"
      "Dump threads' map of proc 3, 8 kinds of threads\nAnd, only the thread which is more than 1 "
      "will be list:\n\t \"        <THREAD>\": 2\n\t \"<UNNAMED THREAD>\": 2\n");
  tw_process_check_openfiles(4, &desc, &files), tw_process_check_threads(4, &files);
  EXPECT_EQ(output.log(), failed("open proc 4's fd dir: No such file or directory") +
                              failed("open proc 4's task dir!!"));
  std::filesystem::permissions(tree.root() / "3/fd", {});
  EXPECT_EXIT(
      {
        std::ignore = seteuid(65534);  // a user whom modes keep out, unlike the super-user
        tw_process_check_openfiles(3, &desc, &files);
        _exit(desc.open_files - 426 + int(files.size()));
      },
      testing::ExitedWithCode(8), "^$");
  std::filesystem::permissions(tree.root() / "3/fd", std::filesystem::perms::owner_all);
}
