// A smaps file, read twice into the same totals.
#include "inspect/smaps.h"

#include "target.h"

void fuzz(std::string_view text) {
  vma_division_t once[VMA_DIVISION_COUNT] = {}, twice[VMA_DIVISION_COUNT];
  LineReader lines(text), again(text);
  const uint64_t resident = tw_smaps_parse(7, lines, once);
  std::copy(std::begin(once), std::end(once), twice);
  require(tw_smaps_parse(7, again, twice) == resident);

  uint32_t ended = 0, areas = 0;
  bool resident_known = false;
  each_line(text, [&](std::string_view line) {
    ended += line.starts_with("VmFlags:");
    resident_known = resident_known || line.starts_with("Rss:");
  });
  for (int i = 0; i < VMA_DIVISION_COUNT; ++i) {
    const vma_division_t& now = once[i];
    areas += now.vma_count;
    require(now.vma_count != 0 || now == vma_division_t{});
    require(resident_known || now.rss_kb == 0);
    require(twice[i] ==
            vma_division_t{2 * now.vss_kb, 2 * now.rss_kb, 2 * now.pss_kb, 2 * now.vma_count});
  }
  require(areas <= ended && (resident_known || resident == 0));
}
