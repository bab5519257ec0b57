// An smaps file.
#include "inspect/maps_parse.h"

#include "target.h"

void fuzz(std::string_view text) {
  uint32_t ends = 0, areas = 0;
  each_line(text, [&](std::string_view line) { ends += line.starts_with("VmFlags:"); });
  vma_division_t once[VMA_DIVISION_COUNT] = {}, twice[VMA_DIVISION_COUNT] = {};
  LineReader lines(text), first(text), second(text);
  const uint64_t resident = tw_smaps_parse(7, lines, once);
  require(tw_smaps_parse(7, first, twice) == resident &&
          tw_smaps_parse(7, second, twice) == resident);
  for (int i = 0; i < VMA_DIVISION_COUNT; ++i) {
    const vma_division_t& d = once[i];
    require(twice[i] == vma_division_t{2 * d.vss_kb, 2 * d.rss_kb, 2 * d.pss_kb, 2 * d.vma_count});
    require(d.vma_count > 0 || d == vma_division_t{});
    areas += d.vma_count;
  }
  require(areas <= ends && may_change(text, "Rss:", resident != 0));
}
