// One file that texts are written to, each whole and in their order. At first the caller writes and
// is held up by a reader that does not drain. From start_queue() on a thread does, and a reader
// that stopped costs texts instead: the oldest that wait give way to new ones, and once it reads
// on, a line in their place says how many lines were dropped. No lock is held while a write blocks.
#ifndef HOST_COMMON_OUTPUT_CHANNEL_H_
#define HOST_COMMON_OUTPUT_CHANNEL_H_

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <string>
#include <utility>

namespace host {

// What is dropped along with a text: those after it that continue it.
enum class Place { kBegins, kContinues };

struct OutputText {
  int fd = -1;  // of the channel's file; never closed here
  std::string bytes{};
  Place place = Place::kBegins;
  bool own_line = false;  // begins a new line if the last text left one open
};

// Must outlive its thread, which runs until the process ends.
class OutputChannel {
 public:
  // Told, on the thread that wrote, that not all of a text could be written to `fd`. It may put.
  using FailureFn = std::function<void(int fd, int error)>;

  // How a line of the program's own is written: by itself "taskwarden: " and the message.
  using FormatFn = std::function<std::string(const std::string& message)>;

  struct Limits {
    size_t bytes = 1 << 20;  // wait at most, the texts' own cost included
    // How long texts wait for room before any is dropped, in all since the file last caught up: a
    // listing may be more than fits while nothing is stalled.
    std::chrono::milliseconds patience{1000};
  };

  explicit OutputChannel(FailureFn on_failure) : OutputChannel(std::move(on_failure), Limits()) {}
  OutputChannel(FailureFn on_failure, Limits limits, FormatFn format = with_program_name)
      : limits_(limits),
        on_failure_(std::move(on_failure)),
        format_(std::move(format)),
        patience_(limits.patience) {}

  static std::string with_program_name(const std::string& message) {
    return "taskwarden: " + message;
  }

  // False when `text` could not be written whole; a queued one counts as written. Any thread.
  bool put(OutputText text);

  // Once, at any time. Throws std::system_error when the thread cannot be started.
  void start_queue();

  // Waits until `deadline` for all texts to be written. Result: how many lines of them are not; one
  // that is being written counts as one. Any thread.
  uint64_t unwritten(std::chrono::steady_clock::time_point deadline);

 private:
  using Clock = std::chrono::steady_clock;

  // Lets go of the lock meanwhile. Nobody else may be writing.
  bool write(std::unique_lock<std::mutex>& lock, const OutputText& text);
  void write_queued();
  void drop_oldest();

  const Limits limits_;
  const FailureFn on_failure_;
  const FormatFn format_;
  std::mutex mutex_;
  std::condition_variable changed_;
  bool queueing_ = false;
  bool writing_ = false;
  bool line_open_ = false;  // belongs to whoever writes
  std::deque<OutputText> queue_;
  size_t queued_bytes_ = 0;
  Clock::duration patience_;    // what is left of it
  uint64_t dropped_lines_ = 0;  // not said yet
  int dropped_fd_ = -1;
};

}  // namespace host

#endif  // HOST_COMMON_OUTPUT_CHANNEL_H_
