// A meminfo file.
#include "inspect/system/meminfo_parse.h"

#include "target.h"

void fuzz(std::string_view text) {
  tw_meminfo_t got = {-1, -2, -3, -4};
  LineReader lines(text);
  tw_meminfo_parse(lines, &got);
  require(may_change(text, "MemTota", got.mem_total_kb != -1) &&
          may_change(text, "MemFre", got.mem_free_kb != -2) &&
          may_change(text, "MemAvail", got.mem_available_kb != -3) &&
          may_change(text, "SUnrec", got.sunreclaim_kb != -4));
}
