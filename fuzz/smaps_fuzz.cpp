// An smaps file against a plain reading of the same lines.
#include <cstdlib>

#include "inspect/smaps.h"
#include "inspect/vma_desc.h"
#include "target.h"

void fuzz(std::string_view text) {
  vma_division_t want[VMA_DIVISION_COUNT] = {};
  uint64_t resident = 0;
  bool in_area = false, ended = false;
  vma_desc_t area;
  each_line(text, [&](std::string_view line) {
    const std::string_view key = line.substr(0, line.find(':') + 1);
    if (ended) return;
    if (!in_area) {
      in_area = is_vma_header(parse_vma(line, &area));
      ended = !in_area;
    } else if (key == "Size:" || key == "Pss:" || key == "Rss:" || key == "VmFlags:") {
      const auto value = plain_value(line);
      const int64_t kb = value ? atoi(value->c_str()) : 0;
      ended = !value || (key == "Size:" && kb != static_cast<int64_t>(area.size_kb));
      if (ended) return;
      if (key == "Pss:") area.pss_kb = kb;
      if (key == "Rss:") area.rss_kb = kb, resident += static_cast<uint64_t>(kb);
      if (key != "VmFlags:") return;
      vma_division_t& division = *match_vma_division(want, area);
      division.vss_kb += area.size_kb;
      division.rss_kb += static_cast<uint64_t>(area.rss_kb);
      division.pss_kb += static_cast<uint64_t>(area.pss_kb);
      ++division.vma_count;
      in_area = false;
    }
  });
  LineReader lines(text);
  vma_division_t got[VMA_DIVISION_COUNT] = {};
  require(tw_smaps_parse(7, lines, got) == resident);
  require(std::equal(got, std::end(got), want));
}
