// Leaves out what the library logs of a record that it has delivered: a line for each step.
#ifndef HOST_WATCH_RECORD_STEPS_H_
#define HOST_WATCH_RECORD_STEPS_H_

#include <algorithm>
#include <array>
#include <functional>
#include <string_view>
#include <utility>
#include <vector>

#include "host/watch/event_sieve.h"

namespace host {

// One thread.
class RecordSteps {
 public:
  explicit RecordSteps(EventSieve::PassFn pass) : pass_(std::move(pass)) {}

  // Passes `text` on, unless it is a step. Steps wait for the line that says that one has failed.
  void take(LogText text) {
    if (text.is_report || !text.tag.empty()) {
      pass_(std::move(text));
      return;
    }
    if (text.text.starts_with(kSteps[0])) {
      steps_.clear();
    }
    const auto begins = [&text](std::string_view step) { return text.text.starts_with(step); };
    const bool is_step = std::any_of(kSteps.begin(), kSteps.end(), begins);
    steps_.push_back(std::move(text));
    if (!is_step) {
      for (LogText& step : std::exchange(steps_, {})) {
        pass_(std::move(step));
      }
    }
  }

 private:
  // How the lines begin that have no tag and tell of no failure; the first of a record first.
  static constexpr std::array<std::string_view, 4> kSteps = {
      "taskwarden  client socket connectting",
      "socket size = ", "socket data = ", "socket sendbuff = "};

  const EventSieve::PassFn pass_;
  std::vector<LogText> steps_{};
};

}  // namespace host

#endif  // HOST_WATCH_RECORD_STEPS_H_
