// The record server against clients of every sort, over real sockets.
#include "host/record_server.h"

#include <cutils/sockets.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/socket.h>

#include <condition_variable>
#include <mutex>
#include <thread>

namespace {

using namespace std::chrono_literals;

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
  explicit Served(host::RecordServer::Limits limits = {.quiet = 0ms})
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
  // Waits for `part`, for less than a silent client is given.
  bool saw(const std::string& part) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, 3s, [&] { return lines_.find(part) != lines_.npos; });
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
  const unique_fd silent = client();
  const unique_fd endless = client(std::string(8192, '7'));
  EXPECT_TRUE(served.saw("longer than 8191"));
  client("seven" + wire("n"));
  EXPECT_TRUE(served.saw("pid " + std::to_string(getpid()) + ", uid " + std::to_string(getuid()) +
                         ": its pid is not a number"));
  client("7@@8@@E@@unterminated@@");
  EXPECT_TRUE(served.saw("before its NUL"));
  client(wire("good"));
  EXPECT_TRUE(served.saw("good\n"));
  put(silent, wire("silent no more"));
  EXPECT_TRUE(served.saw("silent no more\n"));
}

TEST(RecordServer, RecordsComeInPiecesAndWithMoreBehind) {
  Served served;
  const unique_fd one = client(wire("one").substr(0, 5));
  const unique_fd two = client(wire("two") + "and more");
  EXPECT_TRUE(served.saw("two\nrefused"));
  put(one, wire("one").substr(5));
  EXPECT_TRUE(served.saw("one\n"));
  put(one, "later");
  EXPECT_TRUE(served.saw("one\nrefused"));
}

TEST(RecordServer, SilenceAndCrowdsEnd) {
  Served served({.connections = 2, .patience = 200ms, .quiet = 0ms});
  const unique_fd crowd[] = {client(), client(), client()};
  EXPECT_TRUE(served.saw("its place was needed"));
  EXPECT_TRUE(served.saw("in time"));
}

// Who waits while descriptors are short is served once there are some again.
TEST(RecordServer, OutlivesAShortageOfDescriptors) {
  Served served;
  unique_fd last(dup(STDIN_FILENO));
  rlimit whole = {};
  getrlimit(RLIMIT_NOFILE, &whole);
  const rlimit tight = {static_cast<rlim_t>(last.get()) + 1, whole.rlim_max};
  setrlimit(RLIMIT_NOFILE, &tight);
  last.reset();
  const unique_fd waiting = client(wire("late"));
  EXPECT_TRUE(served.saw("accepting connections fails"));
  setrlimit(RLIMIT_NOFILE, &whole);
  EXPECT_TRUE(served.saw("late\n"));
}

}  // namespace
