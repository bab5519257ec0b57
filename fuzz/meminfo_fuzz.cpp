// A meminfo file.
#include "inspect/system/meminfo.h"

#include "target.h"

void fuzz(std::string_view text) {
  const tw_meminfo_t before = {-1, -2, -3, -4};
  tw_meminfo_t meminfo = before;
  LineReader lines(text);
  tw_meminfo_parse(lines, &meminfo);
  const auto keeps = [&](std::string_view key, int32_t tw_meminfo_t::*field) {
    bool present = false;
    each_line(text, [&](std::string_view line) { present = present || line.starts_with(key); });
    require(meminfo.*field == before.*field || present);
  };
  keeps("MemTota", &tw_meminfo_t::mem_total_kb);
  keeps("MemFre", &tw_meminfo_t::mem_free_kb);
  keeps("MemAvail", &tw_meminfo_t::mem_available_kb);
  keeps("SUnrec", &tw_meminfo_t::sunreclaim_kb);
}
