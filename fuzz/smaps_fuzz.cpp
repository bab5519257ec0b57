// A smaps file, against a plain reading of the same lines.
#include "inspect/smaps.h"

#include <cstdlib>

#include "inspect/vma_desc.h"
#include "target.h"

void fuzz(std::string_view text) {
  vma_division_t want[VMA_DIVISION_COUNT] = {}, got[VMA_DIVISION_COUNT] = {};
  uint64_t resident = 0;
  bool in_area = false, ended = false;
  vma_desc_t vma;
  each_line(text, [&](std::string_view line) {
    const std::string_view key = line.substr(0, line.find(':') + 1);
    if (ended) return;
    if (!in_area) {
      in_area = is_vma_header(parse_vma(line, &vma));
      ended = !in_area;
    } else if (key == "Size:" || key == "Pss:" || key == "Rss:" || key == "VmFlags:") {
      const auto value = plain_value(line);
      const int64_t kb = value ? atoi(value->c_str()) : 0;
      ended = !value || (key == "Size:" && kb != static_cast<int64_t>(vma.size_kb));
      if (ended) return;
      if (key == "Pss:") vma.pss_kb = kb;
      if (key == "Rss:") vma.rss_kb = kb, resident += static_cast<uint64_t>(kb);
      if (key == "VmFlags:") {
        vma_division_t& division = *match_vma_division(want, vma);
        division.vss_kb += vma.size_kb;
        division.rss_kb += static_cast<uint64_t>(vma.rss_kb);
        division.pss_kb += static_cast<uint64_t>(vma.pss_kb);
        ++division.vma_count;
        in_area = false;
      }
    }
  });
  LineReader lines(text);
  require(tw_smaps_parse(7, lines, got) == resident);
  require(std::equal(got, got + VMA_DIVISION_COUNT, want));
}
