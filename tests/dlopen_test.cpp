// The shared library as a host uses it: loaded at run time, its cycle on a thread of the host's.
#include <dlfcn.h>
#include <gtest/gtest.h>

#include <condition_variable>
#include <thread>

#include "taskwarden/taskwarden.h"

// What the library reports.
struct Reports {
  static void take(void* self, int output, const char*, const char* text, size_t length) {
    auto& reports = *static_cast<Reports*>(self);
    const std::lock_guard lock(reports.mutex);
    if (output == TASKWARDEN_OUTPUT_REPORT) reports.text.append(text, length);
    reports.grown.notify_all();
  }
  // Whether `part` comes within 100 s. What came before it is forgotten, and so is its first byte.
  bool have(const std::string& part, size_t at = 0) {
    std::unique_lock lock(mutex);
    const auto found = [&] { return (at = text.find(part)) != text.npos; };
    return grown.wait_for(lock, std::chrono::seconds(100), found) && !text.erase(0, at + 1).empty();
  }
  std::mutex mutex;
  std::condition_variable grown;
  std::string text;
};

#define LIBRARYS(name) reinterpret_cast<decltype(&name)>(dlsym(library, #name))

TEST(SharedLibrary, RunsItsCycleBesideTheHostToTheEnd) {
  void* library = dlopen(TASKWARDEN_SHARED, RTLD_NOW);
  ASSERT_NE(library, nullptr) << dlerror();
  const auto notify = LIBRARYS(taskwarden_notify);
  const auto standalone = reinterpret_cast<bool (*)()>(dlsym(library, "_Z13is_standalonev"));
  void* add_interest = dlsym(library, "_Z20interest_builtin_addPKc");
  const auto add = reinterpret_cast<void (*)(const char*)>(add_interest);
  // Never destroyed: the cycle goes on reporting until the process has ended.
  auto& reports = *new Reports;
  LIBRARYS(taskwarden_set_output)(Reports::take, &reports);
  // Threads look like processes, and these are few: a pass is done in one slice.
  LIBRARYS(taskwarden_set_proc_root)("/proc/self/task");
  std::thread(LIBRARYS(taskwarden_start)).detach();
  EXPECT_TRUE(reports.have("Start the Task Warden\n"));
  add("the last");
  EXPECT_TRUE(reports.have("the last\n"));
  for (const bool loaded : {true, false}) {
    notify(1);
    EXPECT_TRUE(reports.have("-> pause taskwarden\n") && reports.have("is paused...\n"));
    EXPECT_EQ(standalone(), getuid() == 0 || getuid() == 2000);
    notify(2);
    EXPECT_TRUE(reports.have("-> resume taskwarden\n-> taskwarden continues to run\n"));
    EXPECT_TRUE(!loaded || dlclose(library) == 0);
  }
}
