// A maps file: each line against the scan format, and the sizes against the sums of the lines.
#include "inspect/maps.h"

#include "support/scan_formats.h"
#include "target.h"

void fuzz(std::string_view text) {
  vma_division_t sums[VMA_DIVISION_COUNT] = {};
  int32_t areas = 0;
  bool whole = true;
  each_line(text, [&](std::string_view line) {
    vma_desc_t vma;
    const int count = parse_vma(line, &vma);
    require(vma_line_agrees(line, count, vma));
    whole = whole && is_vma_header(count);
    areas = whole ? areas + 1 : 0;
    match_vma_division(sums, vma)->vss_kb += vma.size_kb;
  });
  const tw_process_desc before = {"", 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 0};
  tw_process_desc desc = before;
  LineReader lines(text);
  require(tw_maps_parse(7, lines, &desc) == areas);
  const auto is = [&](auto field, uint64_t sum) {
    require(desc.*field == (whole ? sum : before.*field));
  };
  is(&tw_process_desc::vss_dalvik_kb, sums[VMA_DIVISION_DALVIK].vss_kb);
  is(&tw_process_desc::vss_heap_kb, sums[VMA_DIVISION_SCUDO_PRIMARY].vss_kb +
                                        sums[VMA_DIVISION_SCUDO_SECONDARY].vss_kb +
                                        sums[VMA_DIVISION_JEMALLOC].vss_kb);
  is(&tw_process_desc::vss_ashmem_kb, sums[VMA_DIVISION_ASHMEM].vss_kb);
  is(&tw_process_desc::vss_kgsl_kb, sums[VMA_DIVISION_KGSL].vss_kb);
  is(&tw_process_desc::vss_dmabuf_kb, sums[VMA_DIVISION_DMABUF].vss_kb);
}
