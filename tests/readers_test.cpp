// The readers of process files, on made files: what each leaves behind, reports and logs.
#include <android-base/file.h>
#include <android-base/stringprintf.h>
#include <gtest/gtest.h>

#include "inspect/open_files.h"
#include "inspect/status.h"
#include "inspect/system/meminfo.h"
#include "inspect/threads.h"
#include "proctable/zygote.h"
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

// Rows of a text and what its reading leaves, '!' if it reports, and what it logs. Cut off at any
// byte, the text must not be the death of its reader either.
static void expect(std::function<std::string(Text)> read, std::map<std::string, std::string> rows) {
  CapturedOutput output;
  for (const auto& [text, wanted] : rows) {
    for (size_t n = 1; n < text.size() && n < 99; ++n) read(text.substr(0, n));
    output.log(), output.report();
    const std::string left = read(text);
    EXPECT_EQ(left + (output.report().empty() ? "" : "!") + output.log(), wanted) << text;
  }
}

TEST(Status, IsReadKeyByKeyUntilOneFails) {
  MadeTree tree({{.pid = 3}});
  const auto read = [&](Text text) {
    tw_process_desc d = {"o", 1, '?', 5, 2, 3, 4, 0, 0, 0, 0, 0, 0};
    pid_of_zygote = pid_of_zygote64 = 0;
    tree.write("3/status", text), tw_process_check_status(3, &d);
    return StringPrintf("%s %c %d %d %jd %jd %d %d%d", d.name, d.state, d.ppid, d.fd_size,
                        intmax_t(d.vm_hwm_kb), intmax_t(d.vm_rss_kb), d.threads, pid_of_zygote,
                        pid_of_zygote64);
  };
  const std::string same = " ? 1 2 3 4 5 00", c57(57, 'c');
  for (Text key : {"Name"s, "State"s, "Pid"s, "PPid"s, "FDSize"s, "VmHWM"s, "VmRSS"s, "Threads"s})
    expect(read, {{" " + key + ":1\nTracer" + key + ":1\n" + key + " :1\n" + key + ":\t ",
                   "o" + same + unpaired(key + ":\t ", "proc 3's " + key)}});
  expect(
      read,
      {{"Name:\tx y\nState:\tS (s)\nPid:\t3\nPPid:\t9\nFDSize:\t8\nVmHWM:\t 7 kB\nVmRSS:\t 6 kB\n"
        "Threads:\t0\nPid:",
        "x#3 S 9 8 7 6 0 00"},
       {"Name:\t" + kPiece, kPiece.substr(960) + same},
       {"Name: zygote\nPPid: 1", "zygote#3 ? 1 2 3 4 5 30"},
       {kPiece + "xThreads: 8", "o" + same},
       {"Name: zygote64\nPPid: 1", "zygote64#3 ? 1 2 3 4 5 03"},
       {"Name:\n", "#3" + same},
       {"Name: zygote\nPPid: 2", "zygote#3 ? 2 2 3 4 5 00"},
       {"Name: a:\v b\n", "a:\v#3" + same},
       {"VmHWM: 3000000000\nVmRSS: -5\nFDSize: 9999999999999999999",
        "o ? 1 -1 -1294967296 -5 5 00"},
       {kPiece + "Threads: 8x\nPid:", "o ? 1 2 3 4 8 00"},
       {"State:\n", "o \0 1 2 3 4 5 00"s},
       {"Name: [a:0]%s\x01\xff\\n\r\nState: Z\nPid: -1\nPPid: 7",
        "[a:0]%s\x01\xff\\n#3 Z 1 2 3 4 5 "
        "00taskwarden stats|>> inconsistent pid: 3, 4294967295\n"}});
  expect([&](Text text) { return tree.write("3/cmdline", text), read("Name: p\n"); },
         {{"a \n\0c"s, "a \n#3" + same},
          {c57 + "\0"s, c57 + "#3" + same},
          {std::string(9000, 'c'), "p#3" + same},
          {c57 + "c", "p#3" + same}});
}

TEST(Meminfo, IsReadUpToTheSlabAndPolledWith) {
  fresh_table();
  const auto read = [](Text text) {
    MadeTree tree;
    if (text != "-") tree.write("meminfo", text);
    tw_meminfo_t m = {9, 9, 9, 9};
    tw_system_check_meminfo(&m);
    return StringPrintf("%d %d %d %d", m.mem_total_kb, m.mem_free_kb, m.mem_available_kb,
                        m.sunreclaim_kb);
  };
  expect(read,
         {{"-", "0 0 0 0" + failed("open meminfo!!")},
          {"MemTotal:1\nMemFree:", "1 0 0 0!" + unpaired("MemFree:", "MemFree")},
          {"SUnrec", "0 0 0 0!" + unpaired("SUnrec", "SUnreclaim")},
          {"MemAvail", "0 0 0 0!" + unpaired("MemAvail", "MemAvailable")},
          {"MemTot: 1\nMemFr: 1\nMemAvai: 1\nSUnre: 1\nmemFree: 1\n", "0 0 0 0!"},
          {"MemTotal: 1\nMemTotal:\nSUnreclaim: 1 kB\nMemFree: 1\n", "0 0 0 1!"},
          {"MemTotaX: 2147483648\nMemFreX: -7x\nMemAvailX: 3\nSUnrecX: 4", "-2147483648 -7 3 4!"},
          {kPiece + kPiece + kPiece + kPiece + kPiece + "MemFree: 1048577", "0 1048577 0 0"}});
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
       {"Binder:1\n"s, "Binder\n"s, "HwBinder:1\n"s, "POSIX timer 0\n"s, "abc"s, ""s, kPiece})
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
