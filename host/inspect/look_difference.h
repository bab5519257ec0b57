// What there is more and less of in one look at a process than in the look before.
#ifndef HOST_INSPECT_LOOK_DIFFERENCE_H_
#define HOST_INSPECT_LOOK_DIFFERENCE_H_

#include <string>
#include <vector>

#include "host/common/json_line.h"
#include "host/explain/look.h"

namespace host {

// As lines, escaped and without line feeds: the totals, then a line for each thing by name.
std::vector<std::string> difference_lines(const Look& before, const Look& now);

// Members: "time" (UTC), "seconds" between the looks; "memory_kb", "open_files", "threads", which
// are totals, and "memory_kb_change" and so on; "grew" and "shrank", each with "memory", "files"
// and "threads" as of row_list(). Null for what is not known.
Json difference_object(const Look& before, const Look& now);

}  // namespace host

#endif  // HOST_INSPECT_LOOK_DIFFERENCE_H_
