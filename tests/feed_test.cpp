// The feed of a watch: what its readers get, in time, late, or not at all.
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <filesystem>
#include <map>
#include <optional>
#include <thread>

#include "host/feed/feed_client.h"
#include "host/feed/feed_place.h"
#include "host/feed/feed_server.h"
#include "host/leaks/leak_table.h"
#include "host/verdict/verdict_object.h"
#include "support/made_tree.h"
#include "support/row_file.h"

namespace {

using host::FeedClient;
using host::FeedView;
using host::ToldVerdict;
using judge::State;
using News = FeedView::News;
using Got = FeedClient::Got;

ToldVerdict verdict(int32_t pid, State state) {
  return {.pid = pid, .start = 1, .name = "n\"\n" + std::to_string(pid), .state = state};
}

// A feed that is served, and its readers.
class Feed : public testing::Test {
 public:
  void serve(host::FeedServer::Limits limits = host::FeedServer::Limits()) {
    limits.share = std::chrono::seconds(1);
    listener_ = host::offer_feed(path);
    ASSERT_TRUE(listener_.ok()) << strerror(errno);
    server.emplace(std::move(listener_), host::FeedFigures{.watch = 9, .processes = 3}, limits);
    thread_ = std::thread([this] { server->run(); });
  }
  ~Feed() override {
    if (server) server->stop();
    if (thread_.joinable()) thread_.join();
  }
  // Connects and reads the first copy.
  void read_copy(FeedClient* client) {
    ASSERT_TRUE(client->connect(path)) << client->why();
    read_until(client, News::kCopy);
  }
  static void read_until(FeedClient* client, News awaited) {
    News news = News::kNothing;
    while (news != awaited) ASSERT_EQ(client->next(-1, &news), Got::kNews) << client->why();
  }

  const MadeTree folder{};
  const std::string path = folder.root() / "feed";
  std::optional<host::FeedServer> server{};

 private:
  unique_fd listener_{};
  std::thread thread_{};
};

TEST_F(Feed, BringsACopyAndThenChanges) {
  serve();
  server->publish(verdict(1, State::kSuspected));
  server->publish(verdict(2, State::kConfirmed));
  server->publish(verdict(1, State::kEnded));
  FeedClient client;
  read_copy(&client);
  EXPECT_EQ(client.view().figures().watch, 9);
  EXPECT_EQ(client.view().figures().processes, 3u);
  ASSERT_EQ(client.view().standing().size(), 1u);
  EXPECT_EQ(client.view().standing()[0].name, "n\"\n2");
  server->publish(verdict(3, State::kUrgent));
  read_until(&client, News::kVerdict);
  EXPECT_EQ(client.view().change().pid, 3);
  EXPECT_EQ(client.view().standing().size(), 2u);
  server->publish(verdict(2, State::kEnded));
  read_until(&client, News::kVerdict);
  EXPECT_EQ(client.view().standing().size(), 1u);
  // More than one message holds.
  std::vector<ToldVerdict> many;
  for (int32_t pid = 1; pid <= 500; ++pid) many.push_back(verdict(pid, State::kConfirmed));
  server->refresh({.watch = 9, .processes = 7}, many);
  read_until(&client, News::kCopy);
  EXPECT_EQ(client.view().figures().processes, 7u);
  EXPECT_EQ(client.view().standing().size(), 500u);
  // What it would send gets no further than its own end.
  EXPECT_EQ(send(client.fd(), "x", 1, MSG_NOSIGNAL), -1);
}

TEST_F(Feed, MakesUpForWhatASlowReaderMissed) {
  serve({.readers = 64, .waiting = 4});
  FeedClient slow, other;
  read_copy(&slow);
  read_copy(&other);
  ToldVerdict large = verdict(1, State::kConfirmed);
  large.explanation = {std::string(20000, 'x')};
  for (int i = 0; i < 100; ++i) {
    large.pid = 1 + i % 50;
    server->publish(large);
    read_until(&other, News::kVerdict);
  }
  EXPECT_EQ(other.view().missed(), 0u);
  uint64_t read = 0;
  News news = News::kNothing;
  while (news != News::kCopy) {
    ASSERT_EQ(slow.next(-1, &news), Got::kNews) << slow.why();
    read += news == News::kVerdict ? 1 : 0;
  }
  EXPECT_GT(read, 0u);
  EXPECT_EQ(read + slow.view().missed(), 100u);
  EXPECT_EQ(slow.view().standing().size(), 50u);
}

TEST_F(Feed, RefusesThoseBeyondItsLimit) {
  serve({.readers = 2});
  FeedClient first, second, third;
  read_copy(&first);
  read_copy(&second);
  ASSERT_TRUE(third.connect(path));
  News news = News::kNothing;
  EXPECT_EQ(third.next(-1, &news), Got::kEnd);
  EXPECT_EQ(third.why(), "the watch refuses: there are 2 readers, and no more can be");
  first = FeedClient();
  // Its place is free when the server has seen that it is gone.
  do {
    ASSERT_TRUE(third.connect(path));
  } while (third.next(-1, &news) == Got::kEnd);
}

TEST_F(Feed, TakesThePlaceOfOneThatIsGone) {
  unique_fd listener = host::offer_feed(path);
  ASSERT_TRUE(listener.ok());
  struct stat file;
  ASSERT_EQ(stat(path.c_str(), &file), 0);
  EXPECT_EQ(file.st_mode & 0117, 0u);
  EXPECT_FALSE(host::offer_feed(path).ok());
  EXPECT_EQ(errno, EADDRINUSE);
  listener.reset();
  FeedClient client;
  EXPECT_FALSE(client.connect(path));
  EXPECT_EQ(client.why().find("no watch is running"), 0u) << client.why();
  EXPECT_TRUE(host::offer_feed(path).ok());
  // Nothing but a socket is taken away.
  const std::string precious = folder.root() / "precious";
  fclose(fopen(precious.c_str(), "w"));
  EXPECT_FALSE(host::offer_feed(precious).ok());
  EXPECT_TRUE(std::filesystem::exists(precious));
}

// The rows of feed_rows.txt.
TEST(FeedView, BearsWithAnyMessage) {
  const std::string good = host::json_line(host::verdict_object(verdict(1, State::kUrgent)));
  const std::map<std::string, News> news = {{"bad", News::kBadFormat},
                                            {"nothing", News::kNothing},
                                            {"copy", News::kCopy},
                                            {"verdict", News::kVerdict},
                                            {"refused", News::kRefused}};
  const auto rows = row_file(TASKWARDEN_ROWS);
  EXPECT_EQ(rows.size(), 15U);
  FeedView view;
  for (const auto& row : rows) {
    std::string message = row[1];
    if (const size_t at = message.find("GOOD"); at != message.npos) message.replace(at, 4, good);
    EXPECT_EQ(view.take(message), news.at(row[0])) << message;
  }
  EXPECT_EQ(view.standing().size(), 1u);
}

TEST(LeakTable, HasTheMostUrgentFirst) {
  FeedView view;
  const auto show = [&view](const ToldVerdict& one) {
    view.take(R"({"type":"verdict","verdict":)" + host::json_line(host::verdict_object(one)) + "}");
  };
  const auto table = [&view](bool all) {
    return host::leak_table(view, all, ToldVerdict::Time(std::chrono::hours(3)));
  };
  ToldVerdict one = verdict(1, State::kSuspected);
  EXPECT_EQ(table(true), "Nothing leaks: 0 processes watched for 3 h.\n");
  show(one);
  EXPECT_EQ(table(false),
            "Nothing leaks: 0 processes watched for 3 h; suspected: 1 (see --all).\n");
  for (const auto& [pid, left] : {std::pair(2, 9000.), {3, 80.}}) {
    one = verdict(pid, State::kConfirmed);
    one.limit = 2048, one.seconds_to_limit = left, one.rate_per_hour = 7;
    show(one);
  }
  one = verdict(4, State::kUrgent);
  one.unit = "x.service", one.resource = judge::Resource::kThreads, one.from = 1, one.now = 99;
  show(one);
  EXPECT_EQ(
      table(true),
      "STATE      PID  NAME     UNIT       WHAT     FROM -> NOW   RATE          SINCE    "
      "LIMIT\n"
      "urgent     4    n\"\\x0A4  x.service  threads  1 -> 99       -             3 h ago  -\n"
      "confirmed  3    n\"\\x0A3  -          memory   0 kB -> 0 kB  7 kB an hour  3 h ago  "
      "2 MB in 80 s\n"
      "confirmed  2    n\"\\x0A2  -          memory   0 kB -> 0 kB  7 kB an hour  3 h ago  "
      "2 MB in 3 h\n"
      "suspected  1    n\"\\x0A1  -          memory   0 kB -> 0 kB  -             3 h ago  -\n");
}

}  // namespace
