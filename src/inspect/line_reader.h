// Reads a file, or a text in memory, line by line through one fixed buffer: plain reads, no stdio,
// no allocation, and each line handed out where it lies. The readers of process files take their
// lines from here, so that each can be run on text alone.
#ifndef INSPECT_LINE_READER_H_
#define INSPECT_LINE_READER_H_

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "platform/unique_fd.h"

class LineReader {
 public:
  // The most that one piece holds, its terminator included: a longer line comes in several pieces,
  // each handed out as a line of its own.
  static constexpr size_t kLineSize = 1024;

  // Far more than the kernel's files hold. Maps and smaps grow with a process's areas.
  static constexpr size_t kMostBytes = 1 << 20;
  static constexpr size_t kMostOfAreas = 1 << 30;

  // Opens `path` (close-on-exec), of which at most `most` bytes are read; ok() tells whether that
  // succeeded, and errno why not. A FIFO or a device in a file's place holds nothing up.
  static LineReader open(const char* path, size_t most = kMostBytes);
  // Reads `text`, which must outlive the reader.
  explicit LineReader(std::string_view text) : text_(text) {}

  bool ok() const { return text_.data() != nullptr || fd_.ok(); }
  // Whether an error ended the file.
  bool failed() const { return failed_; }

  // The next line with its line feed, if it has one; empty at the end, and only there. It is valid
  // until the next call, the last one also past the end. A read error ends the file: what was read
  // before it is handed out.
  std::string_view next() {
    if (terminated_) {
      terminated_ = false;
      buffer_[position_] = covered_;
    }
    const char* const line = buffer_ + position_;
    // Lines of one kind are often equally long, which is cheaper to see than to search.
    if (length_ > 16 && length_ <= 33 && filled_ - position_ >= length_ &&
        line[length_ - 1] == '\n' && !has_line_feed(line, length_ - 1)) {
      return hand_out(length_);
    }
    const void* const end = memchr(line, '\n', std::min(kLineSize - 1, filled_ - position_));
    return end != nullptr ? hand_out(static_cast<size_t>(static_cast<const char*>(end) - line) + 1)
                          : next_incomplete();
  }

  // The last line, NUL-terminated, for callers that need it so; they may change its bytes. A NUL
  // byte in the file ends its text early.
  char* c_str() {
    if (!terminated_) {
      // Past the last byte there is nothing to keep.
      terminated_ = position_ < filled_;
      covered_ = std::exchange(buffer_[position_], '\0');
    }
    return buffer_ + position_ - length_;
  }

 private:
  LineReader(unique_fd fd, size_t most) : fd_(static_cast<unique_fd&&>(fd)), left_(most) {}

  // Whether there is a line feed among `count` bytes, 16 to 32: in two overlapping words of 16.
  static bool has_line_feed(const char* text, size_t count) {
    using Word = char __attribute__((vector_size(16)));
    constexpr Word kLineFeeds = {'\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n',
                                 '\n', '\n', '\n', '\n', '\n', '\n', '\n', '\n'};
    Word first;
    Word last;
    memcpy(&first, text, sizeof(first));
    memcpy(&last, text + count - sizeof(last), sizeof(last));
    const auto found = (first == kLineFeeds) | (last == kLineFeeds);
    uint64_t halves[2];
    memcpy(halves, &found, sizeof(found));
    return (halves[0] | halves[1]) != 0;
  }
  std::string_view hand_out(size_t length) {
    const char* const line = buffer_ + position_;
    position_ += length;
    length_ = length;
    return {line, length};
  }
  std::string_view next_incomplete();
  bool fill();
  size_t read(char* to, size_t room);

  // The kernel gives at most about a page of areas a read, and ends it on a line where there is
  // room for a page (seq_read_iter() in fs/seq_file.c): a larger buffer would gain nothing.
  static constexpr size_t kBufferSize = 4096;

  std::string_view text_;
  unique_fd fd_;
  size_t left_ = 0;      // bytes that may still be read of a file
  size_t position_ = 0;  // where the next line begins
  size_t filled_ = 0;
  size_t length_ = 0;  // of the last line, which ends at position_
  bool failed_ = false;
  bool terminated_ = false;  // a NUL stands at position_,
  char covered_ = '\0';      // in place of this
  char buffer_[kBufferSize + 1];
};

#endif  // INSPECT_LINE_READER_H_
