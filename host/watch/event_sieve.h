// Takes the text of some events out of what the library writes. The text of an event comes before
// the event is told to the observer, so that it waits for that here. All events between two rests
// of this are about the same process, or about the system.
#ifndef HOST_WATCH_EVENT_SIEVE_H_
#define HOST_WATCH_EVENT_SIEVE_H_

#include <chrono>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace host {

// What the first lines of an event's text are: an empty one, and this.
inline constexpr std::string_view kRule =
    "-------------------------------------------------------\n";

// A text from the library.
struct LogText {
  bool is_report = false;  // else a failure
  std::string tag{};       // of a failure
  std::string text{};
  std::chrono::system_clock::time_point time{};
};

// One thread.
class EventSieve {
 public:
  using PassFn = std::function<void(LogText)>;

  explicit EventSieve(PassFn pass) : pass_(std::move(pass)) {}

  // Passes `text` on, now or later, unless it is a report of an event that is not wanted.
  void take(LogText text) {
    const bool begins = text.is_report && text.text == kRule && blank_.has_value();
    if (begins) {
      ++untold_;
    }
    if (std::optional<LogText> blank = std::exchange(blank_, std::nullopt)) {
      put(std::move(*blank));
    }
    if (text.is_report && text.text == "\n") {
      blank_ = std::move(text);
      return;
    }
    put(std::move(text));
  }

  // The observer was told of an event whose text began, if it has any.
  void tell(bool wanted) {
    if (untold_ == 0) {
      return;
    }
    wanted_ = wanted;
    for (LogText& text : std::exchange(waiting_, {})) {
      put(std::move(text));
    }
    if (--untold_ == 0) {
      wanted_.reset();
    }
  }

 private:
  void put(LogText text) {
    if (untold_ != 0 && !wanted_) {
      waiting_.push_back(std::move(text));
    } else if (untold_ == 0 || *wanted_ || !text.is_report) {
      pass_(std::move(text));
    }
  }

  const PassFn pass_;
  std::optional<LogText> blank_{};  // may begin an event
  size_t untold_ = 0;               // events whose text began
  std::optional<bool> wanted_{};    // likewise, once one of them is told
  std::vector<LogText> waiting_{};
};

}  // namespace host

#endif  // HOST_WATCH_EVENT_SIEVE_H_
