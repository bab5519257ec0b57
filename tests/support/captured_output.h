// Collects what the library writes while it lives: reports as one text, log lines as "tag|text".
#ifndef TESTS_SUPPORT_CAPTURED_OUTPUT_H_
#define TESTS_SUPPORT_CAPTURED_OUTPUT_H_

#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "taskwarden/taskwarden.h"

class CapturedOutput {
 public:
  CapturedOutput() { taskwarden_set_output(take, this); }
  ~CapturedOutput() { taskwarden_set_output(nullptr, nullptr); }

  // What came since the last call, which is forgotten.
  std::string report() { return taken(report_); }
  std::string log() { return taken(log_); }

  // Runs within each report.
  std::function<void(std::string_view)> on_report = [](std::string_view) {};

 private:
  std::string taken(std::string& text) {
    const std::lock_guard lock(mutex_);
    return std::exchange(text, {});
  }
  static void take(void* self, int output, const char* tag, const char* text, size_t length) {
    auto& own = *static_cast<CapturedOutput*>(self);
    const std::lock_guard lock(own.mutex_);
    if (output == TASKWARDEN_OUTPUT_LOG) {
      own.log_.append(tag != nullptr ? tag : "").append("|").append(text, length);
    } else {
      own.report_.append(text, length);
      own.on_report(std::string_view(text, length));
    }
  }

  std::mutex mutex_;
  std::string report_, log_;
};

#endif  // TESTS_SUPPORT_CAPTURED_OUTPUT_H_
