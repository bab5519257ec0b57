// What a reader gets of a log that it did not read in time.
#include "host/common/output_channel.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>
#include <thread>

namespace {

using namespace std::chrono_literals;
using host::OutputChannel;
using host::Place;

struct Pipe {
  int ends[2];
  Pipe() { EXPECT_EQ(pipe2(ends, O_CLOEXEC), 0); }
};

// Never destroyed, since its thread runs on.
OutputChannel& channel_of(OutputChannel::Limits limits) {
  return *new OutputChannel([](int, int) {}, limits);
}

// Reads as much as `text` has, and nothing if it is something else.
std::string read_as(int fd, const std::string& text) {
  std::string read(text.size(), '\0');
  size_t count = 0;
  for (ssize_t n; count < read.size() && (n = ::read(fd, &read[count], read.size() - count)) > 0;) {
    count += static_cast<size_t>(n);
  }
  return read;
}

TEST(OutputChannel, DropsWholeBlocksAndCountsTheirLines) {
  constexpr int kBlocks = 1000;
  const Pipe pipe;
  OutputChannel& channel = channel_of({.bytes = 100000, .patience = {}});
  channel.start_queue();
  for (int i = 1; i <= kBlocks; ++i) {
    channel.put({pipe.ends[1], "\n"});
    channel.put({pipe.ends[1], "x\n" + std::string(500, 'x') + "\n", Place::kContinues});
    channel.put({pipe.ends[1], std::to_string(i) + "\n", Place::kContinues});
  }
  FILE* const reader = fdopen(pipe.ends[0], "r");
  int lines = 0, dropped = 0;
  bool behind_gap = false;
  for (std::string line; line != std::to_string(kBlocks) + "\n";) {
    char buffer[600];
    ASSERT_NE(fgets(buffer, sizeof(buffer), reader), nullptr);
    line = buffer;
    int count = 0;
    const bool gap = sscanf(buffer, "taskwarden: %d lines of the log were dropped", &count) == 1;
    EXPECT_TRUE(!behind_gap || gap || line == "\n") << line;
    behind_gap = gap;
    dropped += count;
    lines += gap ? 0 : 1;
  }
  EXPECT_GT(dropped, 0);
  EXPECT_EQ(lines + dropped, 4 * kBlocks);
}

// Each put has room for one text beside the one that is being written, to a pipe that is full and
// does not block.
TEST(OutputChannel, CountsWhatIsNotWritten) {
  const Pipe pipe;
  fcntl(pipe.ends[1], F_SETFL, O_NONBLOCK);
  std::string full;
  while (write(pipe.ends[1], "-", 1) == 1) full += '-';
  const auto unwritten = [](OutputChannel& channel) { return channel.unwritten({}); };
  OutputChannel& channel = channel_of({.bytes = 1, .patience = {}});
  channel.put({pipe.ends[1], ""});
  channel.start_queue();
  // Two lines while it is queued, one while it is being written.
  channel.put({pipe.ends[1], "\n\nopen"});
  while (unwritten(channel) != 1) std::this_thread::yield();
  channel.put({pipe.ends[1], "a"});
  EXPECT_EQ(unwritten(channel), 2U);
  channel.put({pipe.ends[1], "b\nb\n", Place::kContinues});
  EXPECT_EQ(unwritten(channel), 4U);
  channel.put({pipe.ends[1], "c\n"});
  EXPECT_EQ(unwritten(channel), 5U);
  const std::string rest =
      full +
      "\n\nopen\ntaskwarden: 3 lines of the log were dropped while the output was stalled\nc\n";
  EXPECT_EQ(read_as(pipe.ends[0], rest), rest);
}

TEST(OutputChannel, WaitsForAReaderThatComesSoon) {
  const Pipe pipe;
  OutputChannel& channel = channel_of({.bytes = 1, .patience = 100s});
  channel.start_queue();
  std::string all;
  std::thread reader([&] {
    std::this_thread::sleep_for(50ms);
    read_as(pipe.ends[0], std::string(400000, 'x'));
  });
  for (int i = 0; i < 4; ++i) channel.put({pipe.ends[1], std::string(99999, 'x') + "\n"});
  reader.join();
  EXPECT_EQ(channel.unwritten(std::chrono::steady_clock::now() + 60s), 0U);
}

}  // namespace
