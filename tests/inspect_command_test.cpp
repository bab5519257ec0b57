// `taskwarden inspect`, `slabs` and `meminfo`, as a user runs them.
#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <nlohmann/json.hpp>
#include <tuple>

#include "support/child.h"
#include "support/made_tree.h"

namespace {

using Json = nlohmann::json;

struct Ended {
  int status;
  std::string output;  // both of its outputs
  Json json() const { return Json::parse(output, nullptr, false); }
};

Ended run(const std::string& arguments, const std::string& user = "") {
  FILE* const pipe = popen((user + TASKWARDEN_PROGRAM " " + arguments + " 2>&1").c_str(), "re");
  std::string output;
  for (int c; (c = getc(pipe)) != EOF;) output += static_cast<char>(c);
  return {WEXITSTATUS(pclose(pipe)), output};
}

// Holds `json` against the reasons expected, an empty one for a value that does not exist.
void expect_nulls(const Json& json, const std::map<std::string, std::string>& reasons) {
  for (const auto& [key, reason] : reasons) {
    EXPECT_TRUE(json[key].is_null()) << key << ": " << json;
    EXPECT_EQ(json["unreadable"].contains(key), !reason.empty()) << key << ": " << json;
    EXPECT_NE(json["unreadable"].value(key, "").find(reason), std::string::npos) << json;
  }
}

TEST(InspectCommand, SeesThreadsAndFilesOfARealProcess) {
  Child child("odd\xff\x1b\\name");
  for (const char* text : {"threads Thread- 5", "sockets 12", "table 300"}) child.command(text);
  const std::string pid = std::to_string(child.pid());
  const Json seen = run("inspect --json " + pid).json();
  Json expected = Json::parse(R"({
      "threads": 6, "descriptors": 15, "descriptor_table": 512, "unreadable": {},
      "thread_names": [{"count": 5, "name": "<THREAD>"}, {"count": 1, "name": "taskwarden_test"}],
      "open_files": [{"count": 12, "kind": "<SOCKET>"}, {"count": 2, "kind": "<PIPE>"},
                     {"count": 1, "kind": "/dev/null"}]})");
  expected.update(
      {{"pid", child.pid()}, {"name", "odd\ufffd\x1b\\name#" + pid}, {"parent", getpid()}});
  for (const auto& [key, value] : expected.items()) EXPECT_EQ(seen[key], value);
  EXPECT_GE(seen["peak_kb"], seen["resident_kb"]);
  ASSERT_EQ(seen["divisions"].size(), 18U);
  EXPECT_EQ(seen["divisions"][5]["division"], "STACK");
  EXPECT_GT(seen["divisions"][5]["resident_kb"], 0);

  const std::string text = run("inspect " + pid).output;
  EXPECT_NE(text.find("odd\\xFF\\x1B\\\\name#" + pid), std::string::npos) << text;
  EXPECT_NE(text.find("\n     12  <SOCKET>\n      2  <PIPE>\n"), std::string::npos) << text;
}

TEST(InspectCommand, TellsWhatAnOrdinaryUserMayNotRead) {
  const bool root = getuid() == 0;
  const std::string user = root ? "setpriv --reuid=65534 --regid=65534 --clear-groups " : "";
  const Ended denied = run("inspect --json " + std::to_string(root ? getpid() : 1), user);
  if (denied.status > 2) GTEST_SKIP() << "an ordinary user cannot run it where it was built";
  EXPECT_EQ(denied.status, 0);
  EXPECT_GT(denied.json()["threads"], 0);
  const std::string reason = "Permission denied";
  expect_nulls(denied.json(),
               {{"divisions", reason}, {"descriptors", reason}, {"open_files", reason}});
  const Ended slabs = run("slabs", user);
  EXPECT_EQ(slabs.status, 1);
  EXPECT_EQ(slabs.output.find("count        not readable: "), 0U) << slabs.output;
}

TEST(InspectCommand, TellsWhatDoesNotExistFromWhatFails) {
  MadeTree tree({{.pid = 7, .fds = 0}, {.pid = 8}});
  tree.write("7/status", "Name:\tkworker\nState:\tI\nPPid:\t2\nFDSize:\t64\nThreads:\t1\n");
  tree.write("7/smaps", "");
  tree.write("8/status", "Name:\tapp\nState:\tS\nVmHWM:\t9 kB\nPPid:");
  tree.write("8/smaps", "no area\n");
  tree.remove("8/fd");
  const std::string root = " --json --proc-root " + tree.root().string();

  const Json kernel_thread = run("inspect 7" + root).json();
  expect_nulls(kernel_thread, {{"resident_kb", ""}, {"peak_kb", ""}, {"divisions", ""}});
  EXPECT_EQ(kernel_thread["open_files"], Json::array());

  const Json half = run("inspect 8" + root).json();
  EXPECT_EQ(half["peak_kb"], 9);
  EXPECT_EQ(half["thread_names"][0]["name"], "<THREAD>");
  expect_nulls(half, {{"parent", "failed to get proc 8's PPid"},
                      {"threads", "failed to get proc 8's PPid"},
                      {"resident_kb", "failed to get proc 8's PPid"},
                      {"divisions", "failed to parse \"no area"},
                      {"descriptors", "No such file"},
                      {"open_files", "No such file"}});
}

TEST(InspectCommand, ExitStatus) {
  const MadeTree empty;
  const std::tuple<std::string, int, const char*> rows[] = {
      {"inspect 4242 --proc-root " + empty.root().string(), 1, "no process at"},
      {"meminfo --proc-root " + empty.root().string(), 1, "nothing could be read: No such file"},
      {"inspect", 2, "PID"},
      {"inspect 0", 2, "PID"},
      {"inspect -- -7", 2, "PID"},
      {"inspect 0x10", 2, "PID"},
      {"slabs --top 257", 2, "--top"},
  };
  for (const auto& [arguments, status, text] : rows) {
    const Ended ended = run(arguments);
    EXPECT_EQ(ended.status, status) << arguments;
    EXPECT_NE(ended.output.find(text), std::string::npos) << arguments << ": " << ended.output;
  }
}

TEST(InspectCommand, PrintsTheSystemsFigures) {
  MadeTree tree;
  tree.write("slabinfo", "few 1 1 8 1\nidle 0 9 64 64\nhuge 2000000 2000000 4096 8\nlast 1 1 7 1");
  tree.write("meminfo", "MemTotal: 3221225472 kB\nMemFree: 0 kB\nSUnreclaim: 5 kB\n");
  const std::string root = " --json --proc-root " + tree.root().string();
  EXPECT_EQ(run("slabs --top 2" + root).output,
            R"({"count":3,"total_bytes":8192000015,"caches":[{"total_bytes":8192000000,)"
            R"("live_objects":2000000,"object_bytes":4096,"name":"huge"},{"total_bytes":8,)"
            R"("live_objects":1,"object_bytes":8,"name":"few"}],"unreadable":{}})"
            "\n");
  EXPECT_EQ(run("meminfo" + root).output,
            R"({"mem_total_kb":null,"mem_free_kb":0,"mem_available_kb":null,"sunreclaim_kb":5,)"
            R"("unreadable":{"mem_total_kb":"2 TiB or more","mem_available_kb":"not in the file"}})"
            "\n");
  EXPECT_EQ(run("meminfo").output.find("mem total kB      "), 0U);
}

}  // namespace
