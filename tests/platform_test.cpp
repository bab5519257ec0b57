// What the library stands on and reports through: outputs, clock, pool, blocks and event socket.
#include <cutils/properties.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <fstream>
#include <thread>

#include "blocks/tagged_block.h"
#include "platform/clock.h"
#include "platform/directory.h"
#include "platform/output.h"
#include "proctable/pool.h"
#include "report/event_socket.h"
#include "report/reporter.h"
#include "support/own_network.h"
#include "support/record_listener.h"
#include "taskwarden/taskwarden.h"

using namespace std::string_literals;

static std::string heard;  // all texts, each log line behind its tag and a bar
static std::unique_ptr<RecordListener> listener;

// Takes a text byte by byte, which no other call may disturb. At the last moment before it is sent
// an event of the value 9, ends the listener; of the value 8, has it accept and close.
static void hear(void*, int output, const char* tag, const char* text, size_t length) {
  if (output == TASKWARDEN_OUTPUT_LOG) heard += tag == nullptr ? "|" : tag;
  if (strstr(text, "sendbuff = 1@@9@@") != nullptr) listener.reset();
  if (strstr(text, "sendbuff = 1@@8@@") != nullptr)
    unique_fd(accept(listener->fd(), nullptr, nullptr));
  for (size_t i = 0; i < length; ++i) heard += text[i];
}

TEST(Output, IsWholeAndBearsAClosedPipe) {
  const auto say = [](int i) {
    for (int n = 9; n-- > 0;) tw_reporter().report(1, "%05999d\n", i);
  };
  {
    heard.clear(), taskwarden_set_output(hear, nullptr);
    const std::jthread a(say, 1), b(say, 2);
  }
  taskwarden_set_output(nullptr, nullptr);
  ASSERT_EQ(heard.size(), 18 * 6000U);
  for (size_t i = 0; i < 108000; i += 6000) EXPECT_EQ(heard.find_first_not_of('0', i), i + 5998);
  const Chronicler& it = *Chronicler::instance;
  EXPECT_TRUE(&it == &tw_reporter() && !it.text[0] && it.enabled && it.first + it.second == -2);
  Chronicler* const old = std::exchange(Chronicler::instance, nullptr);
  EXPECT_TRUE(&tw_reporter() == Chronicler::instance && Chronicler::instance != nullptr);
  delete std::exchange(Chronicler::instance, old);
  testing::internal::CaptureStderr();
  tw_output_log("tag", "a"), tw_output_log(nullptr, "b\n"), tw_output_log("", "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "E/tag: a\nE/: b\nE/: \n");
  EXPECT_EXIT(
      {
        int ends[2];
        ASSERT_TRUE(pipe(ends) == 0 && dup2(ends[1], 1) == 1 && dup2(1, 2) == 2 &&
                    close(ends[0]) == 0);
        tw_output_log("tag", "lost");
        tw_output_report("lost");
        _exit(7);
      },
      testing::ExitedWithCode(7), "");
}

TEST(Platform, KeepsItsLimits) {
  EXPECT_EQ(tw_rest(0, 1000000) + tw_rest(0, -1), -2);
  EXPECT_EQ(tw_elapsed_ms({4294968, 1999}, {0, 2000}), -703);
  EXPECT_EQ(taskwarden_set_proc_root(std::string(128, 't').c_str()), -1);
  const auto [entries, notes, slots, refused, shared] = tw_process_pool_reserve(UINT64_MAX);
  EXPECT_TRUE(slots == 4194304 && entries[slots - 1].pid++ == 0 && notes[slots - 1].known++ == 0);
  EXPECT_EQ(tw_process_pool_reserve(35000).slots + tw_process_pool_reserve(35001).slots, 70001U);
  char value[PROPERTY_VALUE_MAX];
  setenv("TW_TEST_A", std::string(200, 'x').c_str(), 1);
  EXPECT_EQ(property_get("tw.test.a", value, "d"), 91);
  setenv("TW_TEST_A", "", 1);
  EXPECT_EQ(property_get("tw.test.a", value, "d") + value[0], 1 + 'd');
  EXPECT_EQ(tw_entry_type(AT_FDCWD, "/proc/self", DT_UNKNOWN), DT_LNK);
  EXPECT_EQ(tw_entry_type(AT_FDCWD, "/proc/none", DT_UNKNOWN), DT_UNKNOWN);
}

TEST(OwnProcess, HasASmallPoolWhereALargeOneIsRefused) {
  EXPECT_EXIT(
      {
        rlim_t pages = 0;  // of addresses in use: 64 MiB more, and the reservation is refused
        std::ifstream("/proc/self/statm") >> pages;
        rlimit limit;
        getrlimit(RLIMIT_AS, &limit);
        limit.rlim_cur = pages * 4096 + (64 << 20);
        setrlimit(RLIMIT_AS, &limit);
        _exit(tw_process_pool_reserve(UINT64_MAX).slots == TW_PROCESS_SLOTS ? 7 : 1);
      },
      testing::ExitedWithCode(7), "");
}

TEST(TaggedBlock, IsKnownFromAllocationToRelease) {
  for (auto n : {0UL, 2147483616UL, 4294967264UL, ~0UL}) EXPECT_EQ(tw_allocate(n), nullptr) << n;
  EXPECT_NE(tw_release(tw_allocate(2147483615)), nullptr);
  free(memset(malloc(5032), 'x', 5032));
  auto* block = static_cast<char*>(tw_allocate(5000));
  tw_alloc_hdr* header = tw_check(block);
  ASSERT_TRUE(header + 1 == static_cast<void*>(block) && header->size == 5032 && !header->data);
  tw_alloc_hdr copy[2] = {*header, *header};
  for (void* foreign : std::initializer_list<void*>{nullptr, block + 1, block + 8, copy + 1}) {
    tw_setdata(foreign, block);
    EXPECT_TRUE(!tw_check(foreign) && !tw_getdata(foreign) && !tw_release(foreign));
  }
  copy->data = block, tw_setheader(copy, 7), tw_setdata(block, copy);
  EXPECT_TRUE(tw_check(copy + 1) == copy && copy->size == 7 && tw_getdata(copy + 1) == block);
  --copy->magic;
  EXPECT_EQ(tw_check(copy + 1), nullptr);
  EXPECT_TRUE(tw_getdata(block) == copy && tw_release(block) == header && !tw_release(block));
}

TEST(EventSocket, SendsOneRecordOrLosesIt) {
  own_network();
  const auto reported = [](int64_t value, const std::string& text) {
    heard.clear(), taskwarden_set_output(hear, nullptr);
    reportEvent(1, value, text.c_str(), text.c_str(), text.c_str());
    return taskwarden_set_output(nullptr, nullptr), heard;
  };
  const std::string connecting = "|taskwarden  client socket connectting", t(7000, 't');
  const std::string refused = connecting + "|Fail to connect to socket . return code: -1";
  const std::string lost = "|trigger vk service written:18446744073709551615";
  const int lowest_free = unique_fd(dup(0)).get();
  EXPECT_EQ(reported(2, "e"), refused);
  listener = std::make_unique<RecordListener>(0);
  EXPECT_EQ(reported(5000000000, "%s@"),
            connecting +
                "|socket size = 6296|socket data = "
                "1,705032704,%s@,%s@.%s@|socket sendbuff = 1@@705032704@@%s@@@%s@@@%s@");
  EXPECT_EQ(reported(2, "e"), refused);  // its queue is full
  struct sigaction nothing = {};
  nothing.sa_handler = [](int) {};  // without SA_RESTART: it interrupts the wait
  sigaction(SIGALRM, &nothing, nullptr);
  const itimerval often = {{0, 5000}, {0, 5000}}, never = {};
  setitimer(ITIMER_REAL, &often, nullptr);
  EXPECT_EQ(reported(2, "e"), refused);
  setitimer(ITIMER_REAL, &never, nullptr);
  EXPECT_EQ(listener->next(), "1@@705032704@@%s@@@%s@@@%s@\0"s);
  EXPECT_TRUE(reported(8, "e").ends_with(lost));
  EXPECT_TRUE(reported(9, "e").ends_with(lost));
  listener = std::make_unique<RecordListener>();
  reported(-1, t);
  EXPECT_EQ(listener->next(),
            "1@@-1@@" + t.substr(6971) + "@@" + t.substr(6901) + "@@" + t.substr(857) + '\0');
  listener.reset();
  EXPECT_EQ(unique_fd(dup(0)).get(), lowest_free);
}
