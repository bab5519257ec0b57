// One memory area: the header line that maps and smaps share, and the division it belongs to.
#ifndef INSPECT_VMA_DESC_H_
#define INSPECT_VMA_DESC_H_

#include <cinttypes>
#include <cstdint>
#include <string_view>

#include "inspect/vma_division.h"

struct vma_desc_t {
  uint64_t start;
  uint64_t end;  // exclusive
  char perms[8];
  uint64_t offset;  // into the mapped file
  uint32_t dev_major;
  uint32_t dev_minor;
  uint32_t inode;
  char
      path[512];  // the first blank-delimited word of the name, cut at 511 bytes; empty without one
  uint64_t size_kb;
  int64_t rss_kb;
  int64_t pss_kb;
};

// The format of a header line. What it converts into `perms` and `path` is cut at their sizes.
inline constexpr const char* TW_VMA_FORMAT = "%" SCNx64 "-%" SCNx64 " %s %" SCNx64 " %x:%x %u %s";

// Parses the header line `line` (at most 1023 bytes) into `vma`, which is cleared
// first, with the result of sscanf with TW_VMA_FORMAT: the count of conversions, -1 for an empty
// line. An area has a header of 7 conversions, or 8 with a name; then size_kb is set too.
int parse_vma(std::string_view line, vma_desc_t* vma);

inline bool is_vma_header(int conversions) {
  return conversions == 7 || conversions == 8;
}

// The element of `divisions` (VMA_DIVISION_COUNT of them) that an area of this name belongs to.
vma_division_t* match_vma_division(vma_division_t* divisions, const vma_desc_t& vma);

#endif  // INSPECT_VMA_DESC_H_
