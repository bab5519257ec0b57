// Who a process is: what runs, for whom, since when, where it belongs and what bounds it.
#ifndef HOST_EXPLAIN_WHOM_H_
#define HOST_EXPLAIN_WHOM_H_

#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/file_text.h"

namespace host {

// What is not known is empty or kNotKnown; strings are any bytes.
struct Whom {
  static constexpr int64_t kNotKnown = -1;
  static constexpr int64_t kUnlimited = INT64_MAX;

  int64_t pid = 0;
  uint64_t start = 0;                  // clock ticks after boot; 0: not known
  std::string name{};                  // of its first thread, as of ps(1)
  std::vector<std::string> command{};  // the words of its command line; or its program alone
  std::string script{};                // of an interpreter, what it runs: script_of()
  int64_t uid = kNotKnown;
  std::string user{};  // as /etc/passwd calls it
  int64_t age_s = kNotKnown;
  std::string control_group{};
  std::string unit{};  // these four as in GroupPlace
  std::string container{};
  std::string runtime{};
  std::string pod{};
  int64_t parent = kNotKnown;
  std::string parent_name{};
  int64_t open_files_limit = kNotKnown;  // the soft one
  int64_t group_limit_kb = kNotKnown;    // the narrowest memory limit of its control groups,
  int64_t group_kb = kNotKnown;          // and what is used of that
};

// The target of a link; empty where it cannot be read.
using LinkFn = std::function<std::string(const std::string& path)>;

struct WhomAsked {
  int pid = 0;
  std::string proc_root = "/proc";
  std::string group_root = "/sys/fs/cgroup";
  // Keeps secrets: of the command line, the path of the program is all that is kept.
  bool no_arguments = false;
};

// Looks at `asked` through `read`, but for its command.
Whom look_at_whom(const WhomAsked& asked, const ReadFn& read);
// Adds the command line, cut at 4096 bytes. It comes from the memory of the process, which can keep
// the reader waiting.
void look_at_command(const WhomAsked& asked, const ReadFn& read, const LinkFn& link, Whom* whom);

// Parsers of single files, pure.

// The soft limit of open files from /proc/PID/limits.
int64_t open_files_limit_of(std::string_view limits);
// The name that a text of passwd(5) gives the user; empty if none.
std::string parse_user(std::string_view passwd, int64_t uid);
// The real user from /proc/PID/status.
int64_t parse_uid(std::string_view status);

}  // namespace host

#endif  // HOST_EXPLAIN_WHOM_H_
