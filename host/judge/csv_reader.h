// Reads comma-separated values row by row (RFC 4180): cells in quotes may hold commas, line breaks
// and doubled quotes; lines end with LF or CRLF. Cells are any bytes.
#ifndef HOST_JUDGE_CSV_READER_H_
#define HOST_JUDGE_CSV_READER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string_view>
#include <vector>

namespace host {

class CsvReader {
 public:
  // The most bytes that a row may have. A longer one is bad, and reading goes on behind the next
  // line feed.
  static constexpr size_t kRowMax = 1 << 16;

  // Puts up to `size` bytes at `buffer` and returns how many; 0 at the end.
  using Source = std::function<size_t(char* buffer, size_t size)>;

  explicit CsvReader(Source source) : source_(std::move(source)), buffer_(2 * kRowMax) {}

  // Moves on to the next row; false at the end. Empty lines are no rows.
  bool next();

  // The row's cells, valid until next(). None if the row is bad.
  const std::vector<std::string_view>& cells() const { return cells_; }
  // The line that the row begins on, from 1.
  uint64_t line() const { return line_; }
  // Why the row is bad, or null.
  const char* error() const { return error_; }

 private:
  enum class Split { kDone, kCutOff };

  bool fill();
  void split_plain(char* begin, char* end);
  Split split_quoted();
  void fail(const char* error);

  Source source_;
  std::vector<char> buffer_;
  size_t position_ = 0;  // of what was not handed out yet
  size_t filled_ = 0;
  bool ended_ = false;
  uint64_t line_ = 0;
  uint64_t next_line_ = 1;
  const char* error_ = nullptr;
  std::vector<std::string_view> cells_{};
};

}  // namespace host

#endif  // HOST_JUDGE_CSV_READER_H_
