// Takes the library's two outputs while it lives: what readers report is dropped, and what they log
// is kept as the reason why a reading failed, which they tell in no other way.
#ifndef HOST_INSPECT_READER_OUTPUT_H_
#define HOST_INSPECT_READER_OUTPUT_H_

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "report/log.h"
#include "taskwarden/taskwarden.h"

namespace host {

class ReaderOutput {
 public:
  ReaderOutput() { taskwarden_set_output(take, this); }
  ~ReaderOutput() { taskwarden_set_output(nullptr, nullptr); }
  ReaderOutput(const ReaderOutput&) = delete;
  ReaderOutput& operator=(const ReaderOutput&) = delete;

  // What was logged since the last call, on one line and without ornament; empty if nothing was.
  std::string failure() { return std::exchange(failure_, {}); }

 private:
  // Logs under another tag are no reader's: the event polls, for which there is nobody here.
  static void take(void* self, int output, const char* tag, const char* text,
                   size_t length) noexcept {
    if (output != TASKWARDEN_OUTPUT_LOG || tag == nullptr ||
        std::string_view(tag) != TW_TAG_STATS) {
      return;
    }
    std::string_view line(text, length);
    line.remove_prefix(line.starts_with(">> ") || line.starts_with("-> ") ? 3 : 0);
    line = line.substr(0, line.find_last_not_of("!\n") + 1);
    std::string& failure = static_cast<ReaderOutput*>(self)->failure_;
    failure.append(failure.empty() ? "" : "; ").append(line);
  }

  std::string failure_;
};

}  // namespace host

#endif  // HOST_INSPECT_READER_OUTPUT_H_
