// A maps file: each line against the scan format, and the totals against the lines.
#include "inspect/maps_parse.h"

#include <cstdio>

#include "inspect/vma_desc.h"
#include "target.h"

// Whether parse_vma() was right to deliver `count` and `got` for `line` (at most 1023 bytes).
static bool vma_line_agrees(std::string_view line, int count, const vma_desc_t& got) {
  vma_desc_t want = {};
  char perms[1024] = "", path[1024] = "";
  const int wanted = sscanf(std::string(line).c_str(), TW_VMA_FORMAT, &want.start, &want.end, perms,
                            &want.offset, &want.dev_major, &want.dev_minor, &want.inode, path);
  return count == wanted && got.start == want.start && got.end == want.end &&
         got.offset == want.offset && got.dev_major == want.dev_major &&
         got.dev_minor == want.dev_minor && got.inode == want.inode &&
         std::string_view(perms).substr(0, 7) == got.perms &&
         std::string_view(path).substr(0, 511) == got.path &&
         got.size_kb == (is_vma_header(wanted) ? (want.end - want.start) / 1024 : 0);
}

void fuzz(std::string_view text) {
  int32_t areas = 0;
  uint64_t mapped = 0;
  bool whole = true;
  each_line(text, [&](std::string_view line) {
    vma_desc_t vma;
    const int count = parse_vma(line, &vma);
    require(vma_line_agrees(line, count, vma));
    whole = whole && is_vma_header(count);
    mapped += vma.size_kb, ++areas;
  });
  const tw_process_desc old = {"", 0, 0, 0, 0, 0, 0, 1, 2, 3, 4, 5, 0};
  tw_process_desc got = old;
  LineReader lines(text);
  require(tw_maps_parse(7, lines, &got).value_or(0) == (whole ? areas : 0));
  const uint64_t kept =
      got.vss_dalvik_kb + got.vss_heap_kb + got.vss_ashmem_kb + got.vss_kgsl_kb + got.vss_dmabuf_kb;
  require(whole ? mapped >= kept
                : memcmp(&got.vss_dalvik_kb, &old.vss_dalvik_kb, 5 * sizeof(uint64_t)) == 0);
}
