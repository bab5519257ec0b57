#include "inspect/system/meminfo.h"

#include <stdlib.h>

#include "audit/poll.h"
#include "inspect/parse_pair.h"
#include "platform/clock.h"
#include "platform/proc_root.h"
#include "report/log.h"

namespace {

// A line is recognised by these leading bytes alone.
constexpr struct {
  std::string_view prefix;
  const char* name;
  int32_t tw_meminfo_t::*field;
} kKeys[] = {
    {"MemTota", "MemTotal", &tw_meminfo_t::mem_total_kb},
    {"MemFre", "MemFree", &tw_meminfo_t::mem_free_kb},
    {"MemAvail", "MemAvailable", &tw_meminfo_t::mem_available_kb},
    {"SUnrec", "SUnreclaim", &tw_meminfo_t::sunreclaim_kb},
};

}  // namespace

void tw_meminfo_parse(LineReader& lines, tw_meminfo_t* meminfo) {
  for (std::string_view text; !(text = lines.next()).empty();) {
    for (const auto& key : kKeys) {
      if (!text.starts_with(key.prefix)) {
        continue;
      }
      char* const line = lines.c_str();
      const int position = parse_pair(line);
      if (position < 0) {
        TW_LOG(TW_TAG_STATS, ">> failed to get %s!!\n", key.name);
        return;
      }
      meminfo->*key.field = atoi(line + position);
      if (key.field == &tw_meminfo_t::sunreclaim_kb) {
        return;
      }
      break;
    }
  }
}

uint32_t tw_system_check_meminfo(tw_meminfo_t* meminfo) {
  static tw_meminfo_t __meminfo;
  const timeval start = tw_clock_now();
  tw_meminfo_t* record = meminfo != nullptr ? meminfo : &__meminfo;
  *record = {};
  {
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
