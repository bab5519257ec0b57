// A maps file: each line against the scan format, and the reading against a plain one of the same
// lines.
#include <cstdio>
#include <tuple>

#include "inspect/maps.h"
#include "inspect/vma_desc.h"
#include "target.h"

// Whether parse_vma() was right to deliver `count` and `got` for `line` (at most 1023 bytes).
static bool vma_line_agrees(std::string_view line, int count, const vma_desc_t& got) {
  vma_desc_t want = {};
  char perms[1024] = "", path[1024] = "";
  const int wanted = sscanf(std::string(line).c_str(), TW_VMA_FORMAT, &want.start, &want.end, perms,
                            &want.offset, &want.dev_major, &want.dev_minor, &want.inode, path);
  snprintf(want.perms, sizeof(want.perms), "%.7s", perms);
  snprintf(want.path, sizeof(want.path), "%.511s", path);
  want.size_kb = is_vma_header(wanted) ? (want.end - want.start) / 1024 : 0;
  const auto fields = [](const vma_desc_t& v) {
    return std::tuple(v.start, v.end, std::string(v.perms), v.offset, v.dev_major, v.dev_minor,
                      v.inode, std::string(v.path), v.size_kb, v.rss_kb, v.pss_kb);
  };
  return count == wanted && fields(got) == fields(want);
}

void fuzz(std::string_view text) {
  vma_division_t divisions[VMA_DIVISION_COUNT] = {};
  int32_t areas = 0;
  bool whole = true;
  each_line(text, [&](std::string_view line) {
    vma_desc_t vma;
    const int count = parse_vma(line, &vma);
    require(vma_line_agrees(line, count, vma));
    whole = whole && is_vma_header(count);
    areas = whole ? areas + 1 : 0;
    match_vma_division(divisions, vma)->vss_kb += vma.size_kb;
  });
  tw_process_desc want = {"", 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 0}, got = want;
  const auto size = [&](int division) { return divisions[division].vss_kb; };
  if (whole) {
    want.vss_dalvik_kb = size(VMA_DIVISION_DALVIK);
    want.vss_heap_kb = size(VMA_DIVISION_SCUDO_PRIMARY) + size(VMA_DIVISION_SCUDO_SECONDARY) +
                       size(VMA_DIVISION_JEMALLOC);
    want.vss_ashmem_kb = size(VMA_DIVISION_ASHMEM);
    want.vss_kgsl_kb = size(VMA_DIVISION_KGSL);
    want.vss_dmabuf_kb = size(VMA_DIVISION_DMABUF);
  }
  LineReader lines(text);
  require(tw_maps_parse(7, lines, &got) == areas && memcmp(&got, &want, sizeof(got)) == 0);
}
