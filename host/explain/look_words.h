// A look in words: lines for people, in which what other programs chose is escaped, and JSON, in
// which it is the bytes that came. Any thread.
#ifndef HOST_EXPLAIN_LOOK_WORDS_H_
#define HOST_EXPLAIN_LOOK_WORDS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "host/common/json_line.h"
#include "host/explain/holdings.h"
#include "host/explain/look.h"
#include "host/explain/whom.h"

namespace host {

// What is said of a part that was not read to its end.
inline constexpr char kNotWhole[] = "not all of it could be read";

// What there is to say of one part of a look: all that is held, or what grew.
struct Rows {
  // `grown` is 0 where all that is held is told, and below 0 where there is less.
  std::vector<Growth> rows{};
  int64_t others = 0;  // names that are left out
  int64_t others_amount = 0;
  bool whole = true;
};

// What a look holds of `part`, at most `most` names. With the files come those folders that hold
// more than twice as many as any single file in them, and eight at least, as kind "folder".
Rows held_rows(const Look& look, Part part, size_t most);
// What grew since the looks that had `before`, and `folders_before` where `part` is files.
Rows grown_rows(const Holdings& before, const Holdings& folders_before, const Look& look, Part part,
                size_t most);

// "user www-data, 3 h old, unit app.service, parent 1 "systemd"", then the command line and the
// script. Without line feeds.
std::vector<std::string> whom_lines(const Whom& whom);
// The rows as lines:
//   heap: 81204 kB
//   library "/usr/lib/libc.so.6": 1800 kB in 5 areas
//   socket "tcp to 192.0.2.1:5432, CLOSE-WAIT": 40 more, now 45
//   thread "worker-*": 16, the newest is 4711, 3 s old
// and a line for what is left out.
std::vector<std::string> row_lines(const Look& look, Part part, const Rows& rows);

// Members, null where not known: command_line (an array), script, uid, user, age_seconds,
// control_group, unit, container, container_runtime, pod, parent, parent_name, open_files_limit,
// group_limit_kb, group_kb. A limit that is none is null too.
Json whom_object(const Whom& whom);
// An array of objects: "increase_kb" or "increase" where the row grew; of memory "kb",
// "swapped_kb", "areas", else "count"; of threads "newest", "newest_age_seconds"; "kind", "name".
// Memory and files have all of their kinds.
Json row_list(const Look& look, Part part, const Rows& rows);

}  // namespace host

#endif  // HOST_EXPLAIN_LOOK_WORDS_H_
