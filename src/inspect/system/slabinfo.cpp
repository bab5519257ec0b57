#include "inspect/system/slabinfo.h"

#include <stdio.h>

#include <algorithm>

#include "inspect/field_walker.h"
#include "inspect/system/slabinfo_parse.h"
#include "platform/clock.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "platform/text_field.h"
#include "report/log.h"
#include "report/reporter.h"

int parse_slab(std::string_view line, tw_slab_entry_t* entry) {
  int32_t objects;
  if (FieldWalker::can_walk(line)) {
    FieldWalker walker(line);
    const std::string_view name = walker.word();
    if (!name.empty() && walker.decimal(&entry->active_objs) && walker.decimal(&objects) &&
        walker.decimal(&entry->obj_size) && !walker.word().empty()) {
      copy_cut(entry->name, name);
      return 5;
    }
  }
  // Words go into buffers that hold any line: a bound in the format would split them.
  char text[LineReader::kLineSize];
  copy_cut(text, line);
  char name[LineReader::kLineSize] = "";
  char rest[LineReader::kLineSize];
  const int count =
      sscanf(text, TW_SLAB_FORMAT, name, &entry->active_objs, &objects, &entry->obj_size, rest);
  copy_cut(entry->name, name);
  return count;
}

void tw_slabinfo_parse(LineReader& lines, tw_slabinfo_t* slabinfo) {
  for (std::string_view line; !(line = lines.next()).empty();) {
    tw_slab_entry_t entry = {};
    if (parse_slab(line, &entry) != 5 || entry.active_objs == 0) {
      continue;
    }
    entry.total_bytes =
        static_cast<uint32_t>(entry.active_objs) * static_cast<uint32_t>(entry.obj_size);
    slabinfo->total_bytes += entry.total_bytes;
    slabinfo->entries[slabinfo->count++] = entry;
    if (slabinfo->count == TW_SLAB_ENTRIES) {
      TW_LOG(TW_TAG_STATS, ">> too many slab entries!!\n");
      return;
    }
  }
}

uint32_t tw_system_check_slabinfo(tw_slabinfo_t* slabinfo) {
  static tw_slabinfo_t __slabinfo;
  const timeval start = tw_clock_now();
  tw_slabinfo_t* census = slabinfo != nullptr ? slabinfo : &__slabinfo;
  *census = {};
  {
    const ReadingMark mark(TASKWARDEN_READS_SLABINFO);
    LineReader lines = LineReader::open(ProcPath("/slabinfo").c_str());
    if (!lines.ok()) {
      TW_LOG(TW_TAG_STATS, ">> failed to open slabinfo!!\n");
      return 0;
    }
    tw_slabinfo_parse(lines, census);
  }
  std::sort(census->entries, census->entries + census->count,
            [](const tw_slab_entry_t& a, const tw_slab_entry_t& b) {
              return static_cast<int32_t>(a.total_bytes) > static_cast<int32_t>(b.total_bytes);
            });
  return static_cast<uint32_t>(tw_elapsed_ms(start, tw_clock_now()));
}

void tw_slabinfo_dump(tw_slabinfo_t* slabinfo, int32_t top_n) {
  TW_REPORT("SLAB has %u entries (size>0), totally %u bytes; TOP-%d:\n",
            static_cast<unsigned>(slabinfo->count), slabinfo->total_bytes, top_n);
  for (int32_t i = 0; i < std::min(top_n, TW_SLAB_ENTRIES); ++i) {
    const tw_slab_entry_t& entry = slabinfo->entries[i];
    TW_REPORT("\t #%2d %20s: %6d %6d, totalsz: %d\n", i + 1, entry.name, entry.active_objs,
              entry.obj_size, static_cast<int32_t>(entry.total_bytes));
  }
}
