// Samples of processes from comma-separated values. The first row names the columns, in any order:
// time, pid, start, name, resident_kb, threads and open_files must be there, those of limits and
// swap may be; others are left out. An empty cell is an unknown number.
#ifndef HOST_JUDGE_SAMPLE_READER_H_
#define HOST_JUDGE_SAMPLE_READER_H_

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "host/judge/csv_reader.h"
#include "judge/sample.h"

namespace host {

class SampleReader {
 public:
  explicit SampleReader(CsvReader::Source source) : rows_(std::move(source)) {}

  // Reads the names of the columns. False if they are wrong; problem() says why.
  bool begin();
  // Reads a row into `*sample`, whose name is valid until the next call. False at the end. If
  // problem() is not empty then, the row is bad and `*sample` holds nothing.
  bool next(judge::Sample* sample);

  // What is wrong with the last row, without its line.
  const std::string& problem() const { return problem_; }
  uint64_t line() const { return rows_.line(); }

 private:
  static constexpr size_t kColumns = 12;

  bool read(judge::Sample* sample);

  CsvReader rows_;
  std::array<size_t, kColumns> place_{};  // of each column in a row; SIZE_MAX if it is not there
  size_t width_ = 0;
  double last_time_ = 0;
  bool any_ = false;
  std::string problem_{};
};

}  // namespace host

#endif  // HOST_JUDGE_SAMPLE_READER_H_
