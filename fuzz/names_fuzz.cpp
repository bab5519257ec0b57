// The names of two inventories, of threads and of descriptors' targets, one a line; the second from
// the first empty line on.
#include <map>

#include "inspect/open_files_count.h"
#include "inspect/string_counter.h"
#include "inspect/thread_family.h"
#include "target.h"

void fuzz(std::string_view text) {
  for (const auto fold : {tw_thread_family, tw_open_file_kind}) {
    StringCounter before, now;
    std::map<std::string, int32_t> growth;
    StringCounter* counter = &before;
    each_line(text, [&](std::string_view name) {
      if (name == "\n") counter = &now;
      const std::string_view family = fold(name);
      require(family == name || (family.starts_with('<') && family.ends_with('>')));
      counter->add(family);
      growth[std::string(family)] += counter == &now ? 1 : -1;
    });
    std::erase_if(growth, [](const auto& row) { return row.second < 1; });
    require(StringCounter_diff(&before, &now) == growth);
  }
}
