// The 18 divisions that a process's memory areas are sorted into, and the totals kept of each.
#ifndef INSPECT_VMA_DIVISION_H_
#define INSPECT_VMA_DIVISION_H_

#include <cstdint>

#include "taskwarden/export.h"

// Arrays of totals are indexed by it.
enum VMA_DIVISION_TYPE : int32_t {
  VMA_DIVISION_DALVIK,           // managed runtime heaps and spaces
  VMA_DIVISION_SCUDO_PRIMARY,    // scudo allocator, primary regions
  VMA_DIVISION_SCUDO_SECONDARY,  // scudo allocator, large regions
  VMA_DIVISION_JEMALLOC,         // the C library's malloc arenas
  VMA_DIVISION_BIONIC_ALLOC,     // the C library's own allocations
  VMA_DIVISION_STACK,            // main and thread stacks
  VMA_DIVISION_OAT,              // compiled code, boot images, dex files
  VMA_DIVISION_APK,              // packages and archives
  VMA_DIVISION_SHARED_OBJECT,    // shared libraries
  VMA_DIVISION_FONT,             // font files
  VMA_DIVISION_RESOURCE,         // resource data files
  VMA_DIVISION_ASHMEM,           // anonymous shared memory
  VMA_DIVISION_KGSL,             // graphics driver memory
  VMA_DIVISION_DMABUF,           // DMA buffers
  VMA_DIVISION_DEVNODE,          // other device mappings
  VMA_DIVISION_ANON,             // other named anonymous memory
  VMA_DIVISION_NAMED,            // everything else that has a name
  VMA_DIVISION_UNNAMED,          // areas without a name
  VMA_DIVISION_COUNT
};

// The totals of one division, in kB. Rss and Pss are filled by the smaps reader only.
struct vma_division_t {
  uint64_t vss_kb;
  uint64_t rss_kb;
  uint64_t pss_kb;
  uint32_t vma_count;

  bool operator==(const vma_division_t&) const = default;
};

// The display name of `type`, or "<invalid vma division>". Static. Any thread.
TW_EXPORT const char* vma_division_typename(VMA_DIVISION_TYPE type);

#endif  // INSPECT_VMA_DIVISION_H_
