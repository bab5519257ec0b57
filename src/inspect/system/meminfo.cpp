#include "inspect/system/meminfo.h"

#include <stdlib.h>

#include "audit/poll.h"
#include "inspect/key_table.h"
#include "inspect/system/meminfo_parse.h"
#include "platform/clock.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "report/log.h"

namespace {

// A line is recognised by these leading bytes alone.
struct MeminfoKey {
  std::string_view prefix;
  const char* name;
  int32_t tw_meminfo_t::*field;
  bool is_last = false;
};

constexpr MeminfoKey kKeys[] = {
    {"MemTota", "MemTotal", &tw_meminfo_t::mem_total_kb},
    {"MemFre", "MemFree", &tw_meminfo_t::mem_free_kb},
    {"MemAvail", "MemAvailable", &tw_meminfo_t::mem_available_kb},
    {"SUnrec", "SUnreclaim", &tw_meminfo_t::sunreclaim_kb, true},
};
constexpr KeyTable kMeminfoLines(kKeys);

}  // namespace

void tw_meminfo_parse(LineReader& lines, tw_meminfo_t* meminfo) {
  for (std::string_view line; !(line = lines.next()).empty();) {
    const MeminfoKey* const key = kMeminfoLines.find(line);
    if (key == nullptr) {
      continue;
    }
    const char* const value = value_of(lines);
    if (value == nullptr) {
      TW_LOG(TW_TAG_STATS, ">> failed to get %s!!\n", key->name);
      return;
    }
    meminfo->*key->field = atoi(value);
    if (key->is_last) {
      return;
    }
  }
}

uint32_t tw_system_check_meminfo(tw_meminfo_t* meminfo) {
  static tw_meminfo_t __meminfo;
  const timeval start = tw_clock_now();
  tw_meminfo_t* record = meminfo != nullptr ? meminfo : &__meminfo;
  *record = {};
  {
    const ReadingMark mark(TASKWARDEN_READS_MEMINFO);
    LineReader lines = LineReader::open(ProcPath("/meminfo").c_str());
    if (!lines.ok()) {
      TW_LOG(TW_TAG_STATS, ">> failed to open meminfo!!\n");
      return 0;
    }
    tw_meminfo_parse(lines, record);
  }
  tw_event_poll_meminfo(record);
  return static_cast<uint32_t>(tw_elapsed_ms(start, tw_clock_now()));
}
