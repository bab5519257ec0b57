// The slab census: the kernel's object caches that have live objects.
#ifndef INSPECT_SYSTEM_SLABINFO_RECORD_H_
#define INSPECT_SYSTEM_SLABINFO_RECORD_H_

#include <cstdint>

inline constexpr int32_t TW_SLAB_ENTRIES = 256;

struct tw_slab_entry_t {
  char name[64];         // cut at 63 bytes
  int32_t active_objs;   // live objects
  int32_t obj_size;      // in bytes
  uint32_t total_bytes;  // their product, wrapping at 32 bits
};

struct tw_slabinfo_t {
  int32_t count;  // caches retained
  tw_slab_entry_t entries[TW_SLAB_ENTRIES];
  uint32_t total_bytes;  // of all retained, wrapping at 32 bits
};

#endif  // INSPECT_SYSTEM_SLABINFO_RECORD_H_
