// Verdicts on their way from the table to people: limits, samples, words, objects, files.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/socket.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "host/common/local_socket.h"
#include "host/common/option_checks.h"
#include "host/common/usage_error.h"
#include "host/judge/sample_reader.h"
#include "host/verdict/journal_entry.h"
#include "host/verdict/sentence.h"
#include "host/verdict/verdict_object.h"
#include "host/watch/alerts.h"
#include "host/watch/config_file.h"
#include "host/watch/event_sieve.h"
#include "host/watch/limits.h"
#include "host/watch/print_filter.h"
#include "host/watch/record_steps.h"
#include "host/watch/sample_file.h"
#include "host/watch/state_file.h"
#include "host/watch/table_copy.h"
#include "judge/saved_state.h"
#include "support/made_tree.h"

namespace {

using host::ToldVerdict;
using judge::Resource;
using judge::State;
using std::chrono::seconds;

ToldVerdict some_verdict() {
  return {.time = ToldVerdict::Time(seconds(1000000)),
          .pid = 812,
          .start = 4711,
          .name = "mailer",
          .unit = "mail.service",
          .resource = Resource::kOpenFiles,
          .state = State::kConfirmed,
          .from = 20,
          .now = 500,
          .since = ToldVerdict::Time(seconds(1000000 - 7200)),
          .rate_per_hour = 30.25,
          .limit = 1024,
          .seconds_to_limit = 62360,
          .evidence = "its floor rose all through 2 hours"};
}

TEST(Verdict, IsOneSentence) {
  setenv("TZ", "UTC", 1);
  tzset();
  const struct {
    void (*change)(ToldVerdict*);
    const char* text;
  } rows[] = {
      {[](auto*) {},
       "\"mailer\" (pid 812, mail.service) leaks open files: 20 -> 500 since 11:46 (2 h ago), 30 "
       "an "
       "hour, limit 1024 in 17 h; its floor rose all through 2 hours"},
      {[](auto* v) {
         *v = {.pid = 7, .name = "a\"\n(\\", .state = State::kSuspected, .now = 999.4};
       },
       "\"a\\x22\\x0A(\\\\\" (pid 7) may leak memory: 0 kB -> 999 kB since 00:00 (0 s ago)"},
      {[](auto* v) {
         v->resource = Resource::kMemory, v->state = State::kUrgent, v->since -= seconds(86400);
         v->from = 1330, v->now = 45 << 20, v->rate_per_hour = 1500 * 1024, v->limit = 2e9;
         v->seconds_to_limit = 80, v->unit = v->evidence = "";
       },
       "\"mailer\" (pid 812) is running out of memory: 1.3 MB -> 45 GB since Jan 11 11:46 (26 h "
       "ago), 1.5 GB an hour, limit 1.9 TB in 80 s"},
      {[](auto* v) {
         v->resource = Resource::kThreads, v->state = State::kEnded,
         v->evidence = "the process ended";
         v->rate_per_hour = v->seconds_to_limit = {};
       },
       "\"mailer\" (pid 812, mail.service) no longer leaks threads: 20 -> 500 since 11:46 (2 h "
       "ago); "
       "the process ended"},
  };
  for (const auto& row : rows) {
    ToldVerdict verdict = some_verdict();
    row.change(&verdict);
    EXPECT_EQ(host::verdict_sentence(verdict), row.text);
  }
}

TEST(Verdict, ComesBackFromItsObject) {
  ToldVerdict verdict = some_verdict();
  const host::Json object = host::verdict_object(verdict);
  EXPECT_EQ(
      object.dump(),
      R"({"time":"1970-01-12T13:46:40.000Z","pid":812,"start":4711,"name":"mailer",)"
      R"("unit":"mail.service","resource":"open_files","state":"confirmed","from":20,"now":500,)"
      R"("since":"1970-01-12T11:46:40.000Z","rate_per_hour":30.25,"limit":1024,)"
      R"("seconds_to_limit":62360,"evidence":"its floor rose all through 2 hours"})");
  verdict.explanation = {"[heap] grew", "x"};
  verdict.details = {{"who", {{"user", "root"}}}};
  EXPECT_EQ(host::verdict_object(verdict)["who"]["user"], "root");
  verdict.details = {};
  ToldVerdict bare;
  for (const ToldVerdict& one : {verdict, bare}) {
    const auto back = host::verdict_of(host::verdict_object(one));
    ASSERT_TRUE(back);
    EXPECT_EQ(host::verdict_object(*back), host::verdict_object(one));
  }
  for (const auto& [key, value] : object.items()) {
    host::Json less = object;
    less.erase(key);
    EXPECT_FALSE(host::verdict_of(less)) << key;
    if (value.is_string()) {
      less[key] = 7;
      EXPECT_FALSE(host::verdict_of(less)) << key;
    }
  }
  EXPECT_FALSE(host::verdict_of(host::Json::array()));
}

TEST(Verdict, IsAnEntryOfTheJournal) {
  const MadeTree folder;
  const std::string path = folder.root() / "journal";
  sockaddr_un address;
  ASSERT_TRUE(host::set_path(path, &address));
  const unique_fd journal(socket(AF_UNIX, SOCK_DGRAM, 0));
  ASSERT_EQ(bind(journal.get(), reinterpret_cast<sockaddr*>(&address), sizeof(address)), 0);
  ToldVerdict verdict = some_verdict();
  verdict.explanation = {"heap"};
  EXPECT_TRUE(host::send_to_journal(host::journal_fields(verdict), path));
  char entry[4096];
  const ssize_t n = recv(journal.get(), entry, sizeof(entry), MSG_DONTWAIT);
  const std::string text(entry, static_cast<size_t>(std::max<ssize_t>(n, 0)));
  const std::string message = host::verdict_sentence(verdict) + "\nheap";
  std::string length(8, '\0');
  length[0] = static_cast<char>(message.size());
  EXPECT_EQ(text.find("MESSAGE\n" + length + message +
                      "\nPRIORITY=4\nSYSLOG_IDENTIFIER=taskwarden\nTASKWARDEN_PID=812\n"),
            0u)
      << text;
  for (const char* field : {"_NAME=mailer\n", "_STATE=confirmed\n", "_RATE_PER_HOUR=30.25\n"}) {
    EXPECT_NE(text.find(std::string("\nTASKWARDEN") + field), text.npos) << field;
  }
  EXPECT_FALSE(host::send_to_journal(host::journal_fields(verdict), path + "x"));
}

TEST(Verdict, AlertsTellWhatIsBadEnoughAndItsEnd) {
  host::Alerts alerts(State::kConfirmed);
  const std::pair<State, bool> rows[] = {{State::kSuspected, false}, {State::kEnded, false},
                                         {State::kConfirmed, true},  {State::kUrgent, true},
                                         {State::kEnded, true},      {State::kEnded, false}};
  ToldVerdict verdict = some_verdict();
  for (const auto& [state, wanted] : rows) {
    verdict.state = state;
    EXPECT_EQ(alerts.want(verdict), wanted) << judge::state_name(state);
  }
}

// Whether what is about a process of user 7 is printed, half as old as the system or unknown.
TEST(PrintFilter, LeavesOutWhatItIsTold) {
  const double now = host::seconds_after_boot();
  const auto start = static_cast<uint64_t>(now / 2 * static_cast<double>(sysconf(_SC_CLK_TCK)));
  const uint32_t older = static_cast<uint32_t>(now) + 600;
  MadeTree tree;
  tree.write("9/status", "Name:\tx\nUid:\t7\t8\t8\t8\n");
  tree.write(
      "9/stat", "9 (x) S" +
                    [] {
                      std::string fields;
                      for (int i = 4; i < 22; ++i) fields += " 0";
                      return fields;
                    }() +
                    " " + std::to_string(start) + " 0");
  const struct {
    host::FilterOptions options;
    host::PrintFilter::Process process;
    bool is_set, shown;
  } rows[] = {
      {{}, {"mailer#9", 9}, false, true},
      {{.ignored = {"x", "mail*"}}, {"mailer#9", 9}, true, false},
      {{.ignored = {"mailer#9"}}, {"mailer#9", 9}, true, true},
      {{.ignored = {"mailer"}}, {"mailer", 9}, true, false},
      {{.ignored = {"[a-c]?"}}, {"b\xff#9", 9}, true, false},
      {{.ignored = {"mail"}}, {"mailer#9", 9}, true, true},
      {{.only_user = 7}, {"x#9", 9}, true, true},
      {{.only_user = 8}, {"x#9", 9}, true, false},
      {{.only_user = 7}, {"x#10", 10}, true, false},
      {{.only_user = 0}, {"x", 0}, true, false},
      {{.min_age = 1}, {"x#9", 9, start}, true, true},
      {{.min_age = older}, {"x#9", 9, start}, true, false},
      {{.min_age = older}, {"x#9", 9}, true, false},
      {{.min_age = older}, {"x#10", 10}, true, true},
      {{.only_user = 7, .min_age = older}, {"x#9", 9, start}, true, false},
      {{.no_rankings = true}, {"x#9", 9}, true, true},
  };
  for (const auto& row : rows) {
    const host::PrintFilter filter(row.options, tree.root());
    EXPECT_EQ(filter.is_set(), row.is_set) << &row - rows;
    EXPECT_EQ(filter.shows(row.process), row.shown) << &row - rows;
    EXPECT_EQ(filter.shows_rankings(), !row.options.no_rankings);
  }
}

// Reports, failures (f), and the events that are told: wanted (+) or not (-).
TEST(EventSieve, TakesOutTheTextOfEvents) {
  const std::string rule(host::kRule);
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{"a", "\n", "b", "\n", "\n", "f", "+", "c"}, "a\nb\n\nfc"},
      {{"\n", rule, "a", "f", "-", "b"}, "fb"},
      {{"\n", rule, "a"}, ""},
      {{"\n", rule, "a", "+", "b"}, "\n" + rule + "ab"},
      {{"\n", rule, "a", "\n", rule, "b", "+", "c", "+"}, "\n" + rule + "a\n" + rule + "bc"},
      {{"\n", rule, "a", "\n", rule, "b", "-", "c", "f", "-", "d"}, "fd"},
      {{"+", "\n", rule, "a", "-", "-", "\n", rule, "b", "+"}, "\n" + rule + "b"},
      {{rule, "-", "a"}, rule + "a"},
  };
  for (const auto& [texts, passed] : rows) {
    std::string all;
    host::EventSieve sieve([&all](const host::LogText& text) { all += text.text; });
    for (const std::string& text : texts) {
      text == "+" || text == "-" ? sieve.tell(text == "+")
                                 : sieve.take({text != "f", "", text, {}});
    }
    EXPECT_EQ(all, passed);
  }
}

TEST(RecordSteps, AreLeftOutOfWhatWasDelivered) {
  const std::string first = "taskwarden  client socket connectting", second = "socket data = x";
  const std::pair<std::vector<std::string>, std::string> rows[] = {
      {{first, second, "/tag", ".report", first, second}, "/tag.report"},
      {{first, "Fail to connect", first, "socket size = 9"}, first + "Fail to connect"},
      {{first, first, second, "trigger", second}, first + second + "trigger"},
  };
  for (const auto& [texts, passed] : rows) {
    std::string all;
    host::RecordSteps steps([&all](const host::LogText& text) { all += text.text; });
    for (const std::string& text : texts) {
      steps.take({text[0] == '.', text[0] == '/' ? "t" : "", text, {}});
    }
    EXPECT_EQ(all, passed);
  }
}

// The file before the arguments, and both as one command line or what is wrong with the file.
TEST(ConfigFile, GivesOptionsOrNamesItsWrongLine) {
  struct Options {
    std::string level{};
    std::vector<std::string> many{};
    bool flag = false, none = false;
  } options;
  const auto add_options = [&options](CLI::App& command) {
    CLI::Option* const level =
        command.add_option("--level", options.level)->check(host::must_be_one_of({"a", "b c"}));
    command.add_option("--many", options.many)->allow_extra_args(false);
    command.add_flag("--flag", options.flag);
    command.add_flag("--none", options.none)->excludes(level);
  };
  MadeTree folder;
  const std::string path = folder.root() / "conf";
  const std::string long_file(host::kConfigMax, '#');
  const struct {
    std::string content, more, result;
  } rows[] = {
      {"", "", ""},
      {"\n \t\r\n # level = x\nflag\r\n", "", " --flag"},
      {"level = b c", "", " --level=b c"},
      {" level=\"b c\" ", "", " --level=b c"},
      {"many = a=b #,\\\nmany=\" \"\nmany = \"", "", " --many=a=b #,\\ --many=  --many=\""},
      {"level = b c\nmany = x\nflag", "--level=a", " --many=x --flag --level=a"},
      {"many = x\nmany = y", "--many z", " --many z"},
      {"level = a\nflag", "--none", " --flag --none"},
      {long_file, "", ""},
      {"flag\nlevel = x\nfrob", "", "2: --level must be one of a, b c, not \"x\""},
      {"flag\n\nflga\n", "", "3: \"--flga\" is not an option of \"go\"; did you mean \"--flag\"?"},
      {"flag\nlevel = a\n#\nlevel = a", "", "4: --level may be given only once"},
      {"flag = x", "", "1: --flag takes no value"},
      {"level", "", "1: --level needs a value"},
      {"none\nlevel = a", "", "2: --level and --none cannot be given together"},
      {"none", "--level a", " --level a"},
      {"--flag", "", "1: \"--flag\" cannot be given here"},
      {"help", "", "1: \"help\" cannot be given here"},
      {"config = x", "", "1: \"config\" cannot be given here"},
      {"= x", "", "1: \"\" cannot be given here"},
      {"many = x\x1b", "", "1: control characters cannot be given here"},
      {std::string("many = x\0y", 10), "", "1: control characters cannot be given here"},
      {"flag x", "", "1: \"--flag x\" is not an option of \"go\"; did you mean \"--flag\"?"},
  };
  for (const auto& row : rows) {
    folder.write("conf", row.content);
    std::vector<std::string> arguments = {"go", "--config=" + path};
    std::istringstream words(row.more);
    for (std::string word; words >> word;) arguments.push_back(word);
    CLI::App app;
    CLI::App& command = *app.add_subcommand("go");
    add_options(command);
    std::string result;
    try {
      host::add_config(command, add_options, &arguments);
      for (const std::string& argument : arguments) {
        const bool ours = argument == "go" || argument.starts_with("--config=");
        result += ours ? "" : " " + argument;
      }
      std::reverse(arguments.begin(), arguments.end());
      app.parse(arguments);
    } catch (const host::WrongUsage& error) {
      result = std::string(error.what()).substr(path.size() + 1);
    }
    EXPECT_EQ(result, row.result) << row.content.substr(0, 99);
  }
}

TEST(Limits, AreReadOfBothVersionsOfControlGroups) {
  MadeTree tree;
  const auto put = [&tree](const std::string& group, const std::string& files) {
    std::istringstream words(files);
    for (std::string name, value; words >> name >> value;) tree.write(group + name, value + "\n");
  };
  put("v2/a/", "memory.max 1048576 memory.current 900000 pids.max max pids.current 5");
  tree.write("v2/a/memory.stat", "xinactive_file 1\ninactive_file 375712\nactive_file 9\n");
  put("v2/a/b.service/", "memory.max max memory.current 1 pids.max 10 pids.current 4");
  put("v2/a/c/", "memory.max 524288");
  put("v1/memory/", "memory.limit_in_bytes 9223372036854771712 memory.usage_in_bytes 5");
  put("v1/memory/m/", "memory.limit_in_bytes 2048 memory.usage_in_bytes 9999");
  put("v1/pids/p/", "pids.max 7 pids.current 7");
  const struct {
    const char *root, *text;
    int64_t memory_kb, threads, limit_kb, used_kb;
  } rows[] = {
      {"v2", "0::/a/b.service\n", 512, 6, 1024, 878},
      {"v2", "0::/a/c\n", 512, -1, 512, -1},
      {"v2", "0::/\n", -1, -1, -1, -1},
      {"v2", "0::/../a\n", -1, -1, -1, -1},
      {"v1", "5:memory:/m\n4:cpu,pids:/p\n1:name=systemd:/q.service/x\n0::/\n", 0, 0, 2, 9},
      {"v1", "5:memory:/", -1, -1, -1, -1},
      {"v1", "junk\n::\n5:memory\n5:memory:m\n\xff\n", -1, -1, -1, -1},
  };
  for (const auto& row : rows) {
    const host::ControlGroups groups = host::parse_control_groups(row.text);
    const host::GroupRoom room = host::read_group_room(groups, tree.root() / row.root);
    EXPECT_EQ(room.memory_kb.value_or(-1), row.memory_kb) << row.text;
    EXPECT_EQ(room.threads.value_or(-1), row.threads) << row.text;
    const auto limit =
        read_memory_limit(groups, tree.root() / row.root, [](const std::string& path) {
          return host::read_file(path).text;
        }).value_or(host::GroupLimit{-1});
    EXPECT_EQ(limit.limit_kb, row.limit_kb) << row.text;
    EXPECT_EQ(limit.used_kb.value_or(-1), row.used_kb) << row.text;
  }

  tree.write("proc/7/limits",
             "Limit  Soft\nMax processes 9 9\nMax open files            1024  4096\n");
  tree.write("proc/7/cgroup", "0::/a/b.service\n");
  tree.write("proc/meminfo", "MemTotal: 9 kB\nMemAvailable:     77 kB\n");
  tree.write("proc/loadavg", "0.00 0.01 0.05 1/40 4567\n");
  tree.write("proc/sys/kernel/threads-max", "44\n");
  tree.write("proc/sys/kernel/pid_max", "32768\n");
  host::LimitReader reader({tree.root() / "proc", tree.root() / "v2"});
  host::LimitReader::Place place = host::LimitReader::place_at(1000);
  const auto look = [&](double now) {
    reader.begin_pass(now);
    return reader.look(7, now, &place);
  };
  EXPECT_EQ(look(1059).open_files, -1);
  EXPECT_EQ(look(1059).threads_room, 4);
  EXPECT_EQ(look(1060).open_files, 1024);
  EXPECT_EQ(look(1060).memory_room_kb, 512);
  EXPECT_EQ(look(1060).threads_room, 4);
  EXPECT_EQ(reader.unit(place), "b.service");
  EXPECT_EQ(reader.memory_available_kb(), 77);
  put("v2/a/", "memory.max 1049600");
  tree.write("proc/7/limits", "Max open files unlimited\n");
  EXPECT_EQ(look(1061).memory_room_kb, 512);
  EXPECT_EQ(look(1300).memory_room_kb, 513);
  EXPECT_EQ(look(1300).open_files, 1024);
  EXPECT_EQ(look(1800).open_files, -1);
}

// What is written comes back the same, whatever the name.
TEST(SampleFile, IsWhatTheJudgeReads) {
  const MadeTree folder;
  const std::string path = folder.root() / "samples.csv";
  const std::string names[] = {"plain",    "a,b", "\"", "a\"\"b,",
                               "x\n9,9,9", "\r",  " ",  "\xff\x1b#7"};
  judge::Sample sample{.time = 1000.5, .pid = 7, .start = 9, .memory_available_kb = 5};
  for (const bool again : {false, true}) {
    host::SampleFile file;
    ASSERT_TRUE(file.open(path)) << file.why();
    if (!again) {
      for (const std::string& name : names) {
        sample.name = name;
        file.add(sample);
      }
    }
    file.flush();
    // A watch was killed while it wrote.
    std::ofstream(path, std::ios::app) << "1001,7,9,\"half";
  }
  host::SampleFile whole;
  ASSERT_TRUE(whole.open(path));
  std::ifstream in(path);
  host::SampleReader reader([&in](char* buffer, size_t size) {
    return static_cast<size_t>(in.read(buffer, static_cast<std::streamsize>(size)).gcount());
  });
  ASSERT_TRUE(reader.begin()) << reader.problem();
  judge::Sample back;
  for (const std::string& name : names) {
    ASSERT_TRUE(reader.next(&back));
    EXPECT_EQ(reader.problem(), "") << name;
    EXPECT_EQ(back.name, name);
    EXPECT_EQ(back.resident_kb, judge::kUnknown);
    EXPECT_EQ(back.memory_available_kb, 5);
    EXPECT_EQ(back.time, 1000.5);
  }
  EXPECT_FALSE(reader.next(&back));

  std::ofstream(folder.root() / "other") << "time,pid\n";
  host::SampleFile other;
  for (const char* name : {"other", "none/x", "."}) {
    EXPECT_FALSE(other.open(folder.root() / name)) << name;
  }
  EXPECT_EQ(std::ifstream(folder.root() / "other").peek(), 't');
}

// A judge that has seen one process, and what it tells.
judge::Judge judge_of_one() {
  judge::Judge judge([](const judge::Verdict&) {});
  judge.take({.time = 100, .pid = 7, .start = 1, .name = "x", .threads = 4});
  return judge;
}

TEST(StateFile, ComesBackOrIsLeftAside) {
  const MadeTree folder;
  const std::string path = folder.root() / "judge.state";
  const auto loaded = [&path](const std::string& boot) {
    judge::Judge judge([](const judge::Verdict&) {});
    host::StateFile(path, boot).load(&judge);
    return judge.processes();
  };
  const judge::Judge judge = judge_of_one();
  host::StateFile(path, "boot").save(judge);
  EXPECT_EQ(loaded("boot"), 1u);
  EXPECT_EQ(loaded("other"), 0u);
  std::filesystem::resize_file(path, std::filesystem::file_size(path) - 1);
  EXPECT_EQ(loaded("boot"), 0u);
  host::StateFile(path, "boot").save(judge);
  EXPECT_EQ(loaded("boot"), 1u);
  // What is not ours stays.
  std::ofstream(path) << "precious";
  judge::Judge fresh = judge_of_one();
  host::StateFile foreign(path, "boot");
  foreign.load(&fresh);
  foreign.save(fresh);
  EXPECT_EQ(std::filesystem::file_size(path), 8u);
  // A place that cannot be written to costs a line; a folder that lacks is not made.
  host::StateFile(folder.root() / "none/judge.state", "boot").save(fresh);
  EXPECT_FALSE(std::filesystem::exists(folder.root() / "none"));
  host::StateFile("", "boot").save(fresh);
}

}  // namespace
