// Reads a file, or a text in memory, line by line through fixed buffers, without allocating. The
// readers of process files take their lines from here, so that each can be run on text alone.
#ifndef INSPECT_LINE_READER_H_
#define INSPECT_LINE_READER_H_

#include <cstddef>
#include <string_view>

#include "platform/unique_fd.h"

class LineReader {
 public:
  // The most that one piece holds, its terminator included: a longer line comes in several pieces,
  // each handed out as a line of its own.
  static constexpr size_t kLineSize = 1024;

  // Opens `path` (close-on-exec); ok() tells whether that succeeded, and errno why not.
  static LineReader open(const char* path);
  // Reads `text`, which must outlive the reader.
  explicit LineReader(std::string_view text) : text_(text) {}

  bool ok() const { return text_.data() != nullptr || fd_.ok(); }

  // The next line with its line feed, if it has one, NUL-terminated, or null at the end. The caller
  // may change its bytes; it is valid until the next call, the last one also past the end. A NUL
  // byte in the file ends the text of its line early. A read error ends the file: what was read
  // before it is handed out.
  char* next();

 private:
  explicit LineReader(unique_fd fd) : fd_(static_cast<unique_fd&&>(fd)) {}
  bool fill();

  std::string_view text_;
  unique_fd fd_;
  size_t position_ = 0;
  size_t filled_ = 0;
  char line_[kLineSize];
  char buffer_[4096];
};

#endif  // INSPECT_LINE_READER_H_
