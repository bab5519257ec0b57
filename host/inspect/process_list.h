// The processes that there are, each in a few numbers from files that keep nobody waiting. Any
// thread.
#ifndef HOST_INSPECT_PROCESS_LIST_H_
#define HOST_INSPECT_PROCESS_LIST_H_

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/json_line.h"

namespace host {

struct ProcessRow {
  static constexpr int64_t kNotKnown = -1;

  int64_t pid = 0;
  std::string name{};  // of its first thread, as of ps(1); any bytes
  int64_t resident_kb = kNotKnown;
  int64_t swapped_kb = kNotKnown;
  int64_t threads = kNotKnown;
  int64_t open_files = kNotKnown;
};

// Takes name, sizes and threads from the text of a status file (proc_pid_status(5)).
void parse_status(std::string_view status, ProcessRow* row);

// All processes of the process file system at `root`, by pid. Throws std::runtime_error where it
// cannot be read.
std::vector<ProcessRow> list_processes(const std::string& root);

// Those that a person means by `word`: the process of that number, or all whose first thread, or
// whose program's file, is called so; `word` may be a pattern (glob(7)). By pid; none where there
// is none, except that a number is taken as it is.
std::vector<int> find_processes(const std::string& word, const std::string& root);

// Orders `rows` by "resident", "threads", "open_files" (most first), "name" or "pid".
void sort_processes(const std::string& by, std::vector<ProcessRow>* rows);

// As aligned lines below a heading, with "-" for what is not known; and as one object.
std::string process_table(const std::vector<ProcessRow>& rows);
Json process_object(const ProcessRow& row);

}  // namespace host

#endif  // HOST_INSPECT_PROCESS_LIST_H_
