// The samples that the judge gets, written to a file as comma-separated values that `taskwarden
// judge` reads. One thread.
#ifndef HOST_WATCH_SAMPLE_FILE_H_
#define HOST_WATCH_SAMPLE_FILE_H_

#include <sys/types.h>

#include <string>

#include "judge/sample.h"
#include "platform/unique_fd.h"

namespace host {

class SampleFile {
 public:
  // Opens the file at `path`, made with mode 0600 if it is not there. What an earlier watch wrote
  // to it is kept. False, with why() set, when it cannot be opened, is no plain file or begins with
  // something else.
  bool open(const std::string& path);
  const std::string& why() const { return why_; }

  // Adds a row to those of this pass.
  void add(const judge::Sample& sample);
  // Writes the rows of this pass, all or none of them. Says once that there is no room, and again
  // when there is.
  void flush();

 private:
  bool begin();

  unique_fd fd_;
  std::string path_{};
  std::string why_{};
  std::string rows_{};
  off_t whole_ = 0;  // bytes of whole rows
  unsigned long long lost_ = 0;
};

// One row, with its line feed. Unknown numbers are empty; the name is in quotes if it needs them.
std::string sample_row(const judge::Sample& sample);

}  // namespace host

#endif  // HOST_WATCH_SAMPLE_FILE_H_
