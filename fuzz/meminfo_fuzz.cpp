// A meminfo file against a plain reading of the same lines.
#include <cstdlib>

#include "inspect/system/meminfo.h"
#include "target.h"

void fuzz(std::string_view text) {
  tw_meminfo_t want = {-1, -2, -3, -4}, got = want;
  bool ended = false;
  each_line(text, [&](std::string_view line) {
    const auto take = [&](std::string_view prefix, int32_t& field) {
      if (ended || !line.starts_with(prefix)) return;
      const auto value = plain_value(line);
      if (value) field = atoi(value->c_str());
      ended = !value || prefix == "SUnrec";
    };
    take("MemTota", want.mem_total_kb);
    take("MemFre", want.mem_free_kb);
    take("MemAvail", want.mem_available_kb);
    take("SUnrec", want.sunreclaim_kb);
  });
  LineReader lines(text);
  tw_meminfo_parse(lines, &got);
  require(memcmp(&got, &want, sizeof(got)) == 0);
}
