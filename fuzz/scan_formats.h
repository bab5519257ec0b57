// Holds what the hand-written parses of lines deliver against the scan formats they stand for.
#ifndef FUZZ_SCAN_FORMATS_H_
#define FUZZ_SCAN_FORMATS_H_

#include <cstdio>
#include <string>
#include <string_view>
#include <tuple>

#include "inspect/system/slabinfo.h"
#include "inspect/vma_desc.h"

// Whether parse_vma() was right to deliver `count` and `got` for `line` (at most 1023 bytes).
inline bool vma_line_agrees(std::string_view line, int count, const vma_desc_t& got) {
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

// The same for parse_slab(). What it leaves behind when it fails does not count.
inline bool slab_line_agrees(std::string_view line, int count, const tw_slab_entry_t& got) {
  tw_slab_entry_t want = {};
  int32_t all;
  char name[1024], rest[1024];
  const int wanted = sscanf(std::string(line).c_str(), TW_SLAB_FORMAT, name, &want.active_objs,
                            &all, &want.obj_size, rest);
  return count == wanted &&
         (count != 5 || std::tuple(std::string(name, 0, 63), want.active_objs, want.obj_size) ==
                            std::tuple(std::string(got.name), got.active_objs, got.obj_size));
}

#endif  // FUZZ_SCAN_FORMATS_H_
