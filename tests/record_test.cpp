// Records: taken apart, shown, served to clients of every sort, and their processes looked at.
#include "host/common/record.h"

#include <cutils/sockets.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <condition_variable>
#include <map>
#include <mutex>
#include <thread>

#include "host/common/escape.h"
#include "host/common/record_format.h"
#include "host/common/record_server.h"
#include "host/listen/process_view.h"
#include "host/listen/reaction.h"
#include "host/listen/where.h"
#include "support/made_tree.h"
#include "support/row_file.h"

namespace {

using namespace std::chrono_literals;

std::string joined(const host::Record& record) {
  return std::to_string(record.pid) + "@@" + std::to_string(record.value) + "@@" + record.event +
         "@@" + record.name + "@@" + record.detail;
}

// The rows of record_rows.txt.
TEST(Record, DoesWhatItsTableHas) {
  MadeTree tree;
  tree.write("7/cmdline", std::string("a b\0\n\0", 6) + std::string(5000, 'x'));
  const std::string program = "/bin/a b";
  tree.link("7/exe", program);
  std::map<std::string, int> kinds;
  for (const auto& row : row_file(TASKWARDEN_ROWS)) {
    const std::string &kind = row[0], &text = row[1];
    ++kinds[kind];
    std::string_view why;
    if (kind == "name") {
      const std::string whole = text + "@@-7@@Event_VssHeap@@" + row[2] + "@@" + row[3];
      const auto record = host::parse_record(whole, &why);
      ASSERT_TRUE(record) << whole << ": " << why;
      EXPECT_EQ(record->name, row[2]);
      EXPECT_EQ(joined(*record), whole);
    } else if (kind == "bad") {
      EXPECT_FALSE(host::parse_record(text, &why)) << text;
      EXPECT_EQ(why, row[2]) << text;
    } else if (kind == "show") {
      EXPECT_EQ(host::escape_text(text), row[2]);
    } else if (kind == "log") {
      EXPECT_EQ(host::log_text_for_terminal(text), row[2]);
      EXPECT_EQ(host::log_text_for_pipe(text), row[3]);
    } else if (kind == "view") {
      tree.write("9/status", text);
      tree.write("7/cgroup", row[2]);
      const auto view = host::view_process({7, 0, "", "", ""}, {9, 0}, tree.root());
      EXPECT_EQ(host::view_text(view), row[3]) << text;
      host::Json object;
      host::add_view(view, &object);
      EXPECT_EQ(object["command_line"].size(), row[3].empty() ? 0u : 3u);
      EXPECT_EQ(object["cgroup"].is_null(), row[3].find("group") == row[3].npos);
      const auto shy = host::view_process({7, 0, "", "", ""}, {9, 0}, tree.root(), true);
      EXPECT_EQ(shy.cgroup, view.cgroup);
      EXPECT_EQ(shy.command, row[3].empty() ? std::vector<std::string>() : std::vector{program});
    }
  }
  EXPECT_EQ(kinds.size(), 5u);
}

TEST(Record, CutsAreRefusedOrLoseNothing) {
  const std::string text = "1234@@307200@@Event_ResidentSize@@a@@b#1234@@detail@@#1234@@";
  for (size_t length = 0; length <= text.size(); ++length) {
    std::string_view why;
    const std::string cut = text.substr(0, length);
    const auto record = host::parse_record(cut, &why);
    EXPECT_EQ(record.has_value(), length >= text.find("@@b") + 2) << cut;
    EXPECT_EQ(record ? joined(*record) : cut, cut);
  }
}

TEST(Record, JsonIsWholeWhateverTheName) {
  const std::chrono::system_clock::time_point arrival(1234567890009ms);
  EXPECT_EQ(host::record_json({-1, 7, "E", "\"\\\n\u2028\x7f\xff#", "d"}, {12, 34}, arrival),
            R"({"time":"2009-02-13T23:31:30.009Z","pid":-1,"value":7,"event":"E",)"
            R"("name":"\"\\\n\u2028\u007f\ufffd#","detail":"d","sender_uid":34,"sender_pid":12})");
}

TEST(Record, IsDueAgainAfterItsCooldown) {
  host::Reaction reaction({.cooldown = 10s});
  const auto due = [&](const std::string& name, const char* event, std::chrono::seconds at) {
    return reaction.is_due({name, event}, host::Reaction::Clock::time_point(at));
  };
  EXPECT_TRUE(due("n", "E", 0s) && !due("n", "E", 9s) && due("m", "E", 9s) && due("n", "F", 9s));
  EXPECT_TRUE(due("n", "E", 10s) && !due("n", "E", 19s));
  // The one that would end first gives way.
  for (int i = 0; i < 10000; ++i) EXPECT_TRUE(due(std::to_string(i), "E", 11s));
  EXPECT_TRUE(due("n", "E", 12s) && !due("9999", "E", 12s));
  EXPECT_TRUE(host::Reaction({}).is_due({}, {}));
}

// A record, and verdicts in their order: which are accepted.
TEST(Where, AcceptsWhatItsWordsName) {
  using judge::Resource, judge::State;
  const std::tuple<State, Resource, char> verdicts[] = {
      {State::kSuspected, Resource::kMemory, 'a'},    {State::kConfirmed, Resource::kMemory, 'b'},
      {State::kUrgent, Resource::kThreads, 'c'},      {State::kEnded, Resource::kMemory, 'd'},
      {State::kSuspected, Resource::kOpenFiles, 'e'}, {State::kEnded, Resource::kOpenFiles, 'f'},
      {State::kEnded, Resource::kThreads, 'g'}};
  const struct {
    std::vector<std::string> words;
    std::string accepted, after_standing;
    bool records, verdicts;
  } rows[] = {
      {{}, "rbcdg", "rbcdfg", true, true},
      {{"Event_VssHeap"}, "r", "r", true, false},
      {{"Event_ThreadAmount"}, "", "", true, false},
      {{"Event_VssHeap", "urgent"}, "rc", "rc", true, true},
      {{"suspected", "ended"}, "adefg", "adefg", false, true},
      {{"memory", "threads"}, "bcdg", "bcdg", false, true},
      {{"open_files"}, "", "f", false, true},
      {{"confirmed", "ended", "memory"}, "bd", "bd", false, true},
  };
  for (const auto& row : rows) {
    for (const bool standing : {false, true}) {
      host::Where where(row.words);
      // What was told before.
      if (standing) {
        where.stand({{.resource = Resource::kOpenFiles, .state = State::kUrgent},
                     {.resource = Resource::kMemory, .state = State::kSuspected}});
      }
      std::string accepted = where.accepts({7, 8, "Event_VssHeap", "n", ""}) ? "r" : "";
      for (const auto& [state, resource, letter] : verdicts) {
        host::ToldVerdict verdict;
        verdict.state = state, verdict.resource = resource;
        accepted += where.accepts(verdict) ? std::string(1, letter) : "";
      }
      EXPECT_EQ(accepted, standing ? row.after_standing : row.accepted) << &row - rows;
      EXPECT_EQ(where.wants_records(), row.records) << &row - rows;
      EXPECT_EQ(where.wants_verdicts(), row.verdicts) << &row - rows;
    }
  }
}

const std::string kSocket = "taskwarden_test." + std::to_string(getpid());

void put(const unique_fd& fd, const std::string& bytes) {
  EXPECT_EQ(send(fd.get(), bytes.data(), bytes.size(), MSG_NOSIGNAL), ssize_t(bytes.size()));
}

unique_fd client(const std::string& bytes = {}) {
  unique_fd fd(
      socket_local_client(kSocket.c_str(), ANDROID_SOCKET_NAMESPACE_ABSTRACT, SOCK_STREAM));
  put(fd, bytes);
  return fd;
}

std::string wire(const std::string& name) {
  return "7@@8@@E@@" + name + "@@" + '\0';
}

// A running server, and what it gave: the names of records, and refusals.
class Served {
 public:
  explicit Served(host::RecordServer::Limits limits = {.patience = 1000s, .quiet = 0ms})
      : server_(
            host::listen_on(kSocket), host::Senders::trusted(), limits,
            [this](const host::Record& record, std::string_view, const host::Sender&) {
              note(record.name);
              return record.name != "end";
            },
            [this](const std::string& line) { note(line); }),
        thread_([this] { EXPECT_TRUE(server_.run()); }) {}
  ~Served() {
    client(wire("end"));
    thread_.join();
  }
  // Waits for `part` behind the one before, for less than a silent client is mostly given.
  bool saw(const std::string& part) {
    std::unique_lock lock(mutex_);
    const bool found =
        changed_.wait_for(lock, 60s, [&] { return lines_.find(part) != lines_.npos; });
    lines_.erase(0, lines_.find(part));
    lines_.erase(0, part.size());
    return found;
  }

 private:
  void note(const std::string& line) {
    const std::lock_guard lock(mutex_);
    lines_ += line + "\n";
    changed_.notify_all();
  }
  std::mutex mutex_;
  std::condition_variable changed_;
  std::string lines_;
  host::RecordServer server_;
  std::thread thread_;
};

TEST(RecordServer, BadClientsHoldUpNobody) {
  Served served;
  const unique_fd silent = client(), piece = client(wire("in pieces").substr(0, 5));
  const std::string sender =
      "refused a record from pid " + std::to_string(getpid()) + ", uid " + std::to_string(getuid());
  const std::pair<std::string, std::string> rows[] = {
      {std::string(8192, '7'), "longer than 8191"},
      {"seven" + wire("n"), sender + ": its pid is not a number"},
      {"7@@8@@E@@unterminated@@", "before its NUL"},
      {"", "nothing was sent"},
      {wire("two") + "and more", "two\n" + sender + ": more follows"},
      {wire("good"), "good\n"},
  };
  for (const auto& [bytes, line] : rows) {
    client(bytes);
    EXPECT_TRUE(served.saw(line));
  }
  put(silent, wire("silent no more"));
  EXPECT_TRUE(served.saw("silent no more\n"));
  put(piece, wire("in pieces").substr(5));
  EXPECT_TRUE(served.saw("in pieces\n"));
  put(piece, "later");
  EXPECT_TRUE(served.saw("refused"));
}

TEST(RecordServer, SilenceAndCrowdsEnd) {
  for (const bool crowded : {true, false}) {
    Served served({.connections = 2, .patience = crowded ? 1000s : 1s, .quiet = 0ms});
    const unique_fd silent[] = {client(), client(), client()};
    EXPECT_TRUE(served.saw(crowded ? "too many others came after it" : "in time"));
  }
}

TEST(RecordServer, CountsRefusalsWithinASecond) {
  Served served(host::RecordServer::Limits{});
  for (int i = 0; i < 3; ++i) client("x");
  EXPECT_TRUE(served.saw("NUL\nrefused 2 records, the last from pid "));
}

TEST(Doorkeepers, TurnStrangersAwayAndHandOverGuests) {
  const unique_fd listener = host::listen_on(kSocket);
  for (const bool known : {false, true}) {
    const host::Senders senders{.anyone = known};
    host::Doorkeepers keepers(listener.get(), senders);
    std::vector<unique_fd> crowd(100);
    for (unique_fd& one : crowd) one = client();
    EXPECT_FALSE(keepers.are_busy());
    size_t guests = 0, strangers = 0;
    while (guests + strangers < crowd.size()) {
      keepers.call();
      const host::Arrivals come = keepers.take();
      guests += come.guests.size();
      strangers += come.strangers;
      EXPECT_TRUE(come.strangers == 0 || come.last_stranger.pid == getpid());
      for (const auto& guest : come.guests) put(guest.fd, "welcome");
    }
    EXPECT_EQ(guests, known ? crowd.size() : 0);
    for (const unique_fd& one : crowd) {
      char answer[8];
      EXPECT_EQ(read(one.get(), answer, sizeof(answer)), known ? 7 : 0);
    }
    keepers.set_resting(true);
    while (keepers.are_busy()) std::this_thread::yield();
  }
}

// Who waits while descriptors are short is served once there are some again.
TEST(RecordServer, OutlivesAShortageOfDescriptors) {
  Served served;
  for (int time = 0; time < 2; ++time) {
    unique_fd last(dup(STDIN_FILENO));
    rlimit whole = {};
    getrlimit(RLIMIT_NOFILE, &whole);
    const rlimit tight = {static_cast<rlim_t>(last.get()) + 1, whole.rlim_max};
    setrlimit(RLIMIT_NOFILE, &tight);
    last.reset();
    const unique_fd waiting = client(wire("late"));
    EXPECT_TRUE(served.saw("cannot accept connections"));
    setrlimit(RLIMIT_NOFILE, &whole);
    EXPECT_TRUE(served.saw("late\n"));
  }
  EXPECT_FALSE(host::listen_on(std::string(108, 'n')).ok());
}

}  // namespace
