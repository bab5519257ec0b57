// What `watch --log-format json` makes of the library's events: event_objects.txt.
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "audit/poll.h"
#include "host/watch/watch_log.h"
#include "inspect/system/meminfo.h"
#include "proctable/inspection.h"
#include "proctable/scan.h"
#include "support/fake_clock.h"
#include "support/made_tree.h"
#include "support/own_network.h"
#include "support/world.h"

namespace {

std::string text_of(const std::string& path) {
  std::ostringstream text;
  text << std::ifstream(path).rdbuf();
  return text.str();
}

TEST(EventObject, HasWhatTheLogLists) {
  own_network();
  MadeTree tree;
  tw_process_list* const list = fresh_table();
  FakeClock clock;
  testing::internal::CaptureStdout();
  host::start_log({.json = true});
  const auto pass = [&] {
    clock.advance_ms(3000);
    tw_process_list_refresh(list);
    for (auto* at = list->head; at != nullptr;) tw_process_list_iterate(list, at, 1 << 20, &at);
  };
  for (const unsigned size : {1U, 2U, 4U}) {
    const int times = static_cast<int>(size);
    tree.put({.pid = 500,
              .threads = 2 * times,
              .fds = 8 * times,
              .fd_size = 64 * times,
              .rss = 9000 * size,
              .hwm = 9000 * size,
              .cmdline = "a\"\xff"});
    tree.write("500/task/500/comm", "alone\n");
    tree.write("500/smaps", "0-1000 rw-p 0 00:00 0 \nRss: " + std::to_string(100 * size) +
                                " kB\nVmFlags: rd\n2000-3000 rw-p 0 00:00 0 [heap]\nRss: 7 kB\n" +
                                "VmFlags: rd\n");
    tree.write("500/stat", "500 (a) S 1 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 0 77 0");
    pass();
    pass();
  }
  // As if it had changed between the two readings.
  const std::string status = text_of(tree.root() / "500/status");
  tree.write("500/status", status.substr(0, status.find("Threads:")) + "Threads:\t99\n");
  pass();
  tree.write("meminfo", "MemFree: 5 kB\nMemAvailable: 6 kB\nSUnreclaim: 2097152 kB\n");
  tree.write("slabinfo", "dentry 3 3 100 1\nnone 0 0 8 1\n");
  tw_system_check_meminfo(nullptr);
  list->native_count = 501;
  tw_event_poll_process_list(list);
  tree.remove(500);
  pass();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), text_of(TASKWARDEN_OBJECTS));
  EXPECT_EQ(host::undelivered_records(), 4U);
}

}  // namespace
