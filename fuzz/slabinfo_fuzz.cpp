// A slabinfo file: each line against the scan format, and the census against its own rows.
#include "inspect/system/slabinfo.h"
#include "inspect/system/slabinfo_parse.h"

#include <cstdio>

#include "target.h"

// Whether parse_slab() was right to deliver `count` and `got` for `line` (at most 1023 bytes). What
// it leaves behind when it fails does not count.
static bool slab_line_agrees(std::string_view line, int count, const tw_slab_entry_t& got) {
  int32_t active, all, size;
  char name[1024], rest[1024];
  const int wanted =
      sscanf(std::string(line).c_str(), TW_SLAB_FORMAT, name, &active, &all, &size, rest);
  return count == wanted && (count != 5 || (std::string_view(name).substr(0, 63) == got.name &&
                                            active == got.active_objs && size == got.obj_size));
}

void fuzz(std::string_view text) {
  int32_t live = 0;
  each_line(text, [&](std::string_view line) {
    tw_slab_entry_t entry = {};
    const int count = parse_slab(line, &entry);
    require(slab_line_agrees(line, count, entry));
    live += count == 5 && entry.active_objs != 0;
  });
  tw_slabinfo_t census = {};
  LineReader lines(text);
  tw_slabinfo_parse(lines, &census);
  require(census.count == std::min(live, TW_SLAB_ENTRIES));
  uint32_t total = 0;
  for (const tw_slab_entry_t& entry : census.entries) {
    require(memchr(entry.name, '\0', sizeof(entry.name)) != nullptr);
    require((entry.active_objs != 0) == (&entry < census.entries + census.count));
    total += entry.total_bytes;
  }
  require(census.total_bytes == total);
  tw_slabinfo_dump(&census, 10);
}
