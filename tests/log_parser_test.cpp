// The log's texts as objects.
#include "host/log_parser.h"

#include <gtest/gtest.h>

namespace {

constexpr char kRule[] = "-------------------------------------------------------\n";

// The objects that `texts` make, in JSON and a line each; "|" is where they were complete.
std::string objects(const std::vector<std::string>& texts) {
  host::LogParser parser;
  std::string all;
  const auto add = [&](const std::vector<host::LogParser::Json>& done) {
    for (host::LogParser::Json object : done) {
      EXPECT_EQ(object["time"], "T");
      object.erase("time");
      all += object.dump(-1, ' ', true, host::LogParser::Json::error_handler_t::replace) + "\n";
    }
  };
  for (const std::string& text : texts) add(parser.take(text, "T"));
  all += parser.holds() ? "|" : "";
  add(parser.flush());
  return all;
}

TEST(LogParser, MakesAnObjectOfEachBlock) {
  const std::string hostile = "a\" b\": running threads amount, 1 -> 2\n#7";
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"Start the Task Warden\n", "\n", "no block\n"},
       "{\"text\":\"Start the Task Warden\"}\n{\"text\":\"no block\"}\n"},
      // All events of a poll are raised before the first is explained.
      {{"\n",
        kRule,
        "Event_ResidentSize\n",
        "-> audit evnet by proc 7 \"x#7\": RSS increasement, peak 10 -> 20\n",
        "\n",
        kRule,
        "Event_VssAshmem\n",
        "-> audit evnet by proc 7 \"x#7\": VSS \"ASHMEM\" increasement, peak 1 -> 2\n",
        "\n",
        kRule,
        "Event_ThreadAmount\n",
        "-> audit evnet by proc 7 \"" + hostile + "\": running threads amount, 4 -> 31\n",
        "-> RSS is too large in proc 7 \"x#7\": 20\n",
        "\t #17: \"   UNNAMED\" eaten    39128 kB in   5 areas; increased    39064 kB, -1 areas\n",
        "\t -> THE MAX INCREASE is \"UNNAMED\" (17)\n",
        "-> pause taskwarden\n",
        "-> Too many threads in proc 7 \"" + hostile + "\": 31\n",
        "Dump threads' map of proc 7, 2 kinds of threads\n",
        "And, only the thread which is more than 1 will be list:\n",
        "\t \"       w\": 3\": 9\n",
        "\t \"          worker\": 30\n",
        "-> Here they're the newly created:\n",
        "\t \"          worker\" created: 27\n",
        "\n"},
       R"({"event":"Event_ResidentSize","pid":7,"name":"x#7","before":10,"after":20,"explanation":{"divisions":[{"number":17,"division":"UNNAMED","resident_kb":39128,"areas":5,"increase_kb":39064,"increase_areas":-1}],"largest_increase":"UNNAMED","largest_increase_number":17}}
{"event":"Event_VssAshmem","pid":7,"name":"x#7","before":1,"after":2}
{"text":"-> pause taskwarden"}
{"event":"Event_ThreadAmount","pid":7,"name":"a\" b\": running threads amount, 1 -> 2\n#7","before":4,"after":31,"explanation":{"kinds":2,"listed_above":1,"threads":[{"name":"       w\": 3","count":9},{"name":"worker","count":30}],"created":[{"name":"worker","increase":27}]}}
)"},
      // The first inventory waits for more; what is no row ends it.
      {{"\n", kRule, "Event_OpenFileAmount\n",
        "-> audit evnet by proc 8 \"\xff#8\": open files amount, 3 -> 33\n", "\n", kRule,
        "Event_OpenFileFDSize\n",
        "-> audit evnet by proc 8 \"\xff#8\": open files FDSize, 64 -> 128\n",
        "-> Too many open files in proc 8 \"\xff#8\": 33\n",
        "Dump openfiles' map of proc 8, 1 kinds of files\n",
        "And, only the file opened more than 10 will be list:\n",
        "\t \"/a\n" + std::string(kRule) + "\": 33\n",
        "-> Too large \"FDSize\" in proc 8 \"\xff#8\": 128\n"},
       R"({"event":"Event_OpenFileAmount","pid":8,"name":"\ufffd#8","before":3,"after":33,"explanation":{"kinds":1,"listed_above":10,"files":[{"name":"/a\n-------------------------------------------------------\n","count":33}]}}
{"event":"Event_OpenFileFDSize","pid":8,"name":"\ufffd#8","before":64,"after":128}
)"},
      {{"\n", kRule, "AuditEvent_LowOnMemory\n", "-> audit evnet: mem-free 5, mem-avail 6\n", "\n",
        kRule, "AuditEvent_SlabUnreclaimSize\n", "-> audit evnet: slab unreclaim 9\n",
        "SLAB has 2 entries (size>0), totally 80 bytes; TOP-10:\n",
        "\t # 1               dentry:      4     20, totalsz: 80\n"},
       R"({"event":"AuditEvent_LowOnMemory","mem_free_kb":5,"mem_available_kb":6}
|{"event":"AuditEvent_SlabUnreclaimSize","slab_unreclaimable_kb":9,"explanation":{"caches":2,"bytes":80,"largest":[{"cache":"dentry","objects":4,"object_bytes":20,"bytes":80}]}}
)"},
      {{"\n", kRule, "Event_ProcNativeAmount\n", "-> audit evnet: native tasks, 501\n",
        "-> There're 600 running processes:\n", "\t KThread: 99, Native : 501, Runtime: 0\n", "\n",
        kRule, "-> Update process'RSS rank of \"Non-runtime\":\n",
        "\t [*  1] pid 9 \"n#9\": RSS 77\n", "\t [   2] pid 8 \"m#8\": RSS 66\n"},
       R"({"event":"Event_ProcNativeAmount","tasks":501,"explanation":{"processes":600,"kernel":99,"native":501,"runtime":0}}
|{"event":"Event_ProcRankNative","explanation":{"ranking":[{"rank":1,"pid":9,"name":"n#9","resident_kb":77,"newcomer":true},{"rank":2,"pid":8,"name":"m#8","resident_kb":66}]}}
)"},
  };
  for (const auto& [texts, wanted] : rows) EXPECT_EQ(objects(texts), wanted);
}

}  // namespace
