// What a reader gets of a log that it did not read in time.
#include "host/output_channel.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <string>

namespace {

TEST(OutputChannel, DropsWholeBlocksAndCountsTheirLines) {
  constexpr int kBlocks = 1000;
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  // Never destroyed, since its thread runs on.
  static auto& channel =
      *new host::OutputChannel([](int, int) {}, {.bytes = 100000, .patience = {}});
  channel.start_queue();
  for (int i = 1; i <= kBlocks; ++i) {
    channel.put({ends[1], "\n"});
    channel.put({ends[1], "x\n" + std::string(500, 'x') + "\n", host::Place::kContinues});
    channel.put({ends[1], std::to_string(i) + "\n", host::Place::kContinues});
  }
  FILE* const reader = fdopen(ends[0], "r");
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

}  // namespace
