// Tagged blocks: heap blocks behind a marked header, so that a pointer can be tested for being a
// live block before it is used or released. As thread-safe as malloc and free; a block must not be
// released by one thread while another uses it.
#ifndef BLOCKS_TAGGED_BLOCK_H_
#define BLOCKS_TAGGED_BLOCK_H_

#include <stdint.h>

#include "taskwarden/export.h"

inline constexpr uint64_t TW_ALLOC_MAGIC = 0xC3C3C3C31E1E1E1E;

// Stands directly before the caller's bytes.
struct tw_alloc_hdr {
  uint64_t size;       // of the whole block, header included, in bytes
  void* data;          // one word for the owner; null until tw_setdata()
  uint64_t magic;      // TW_ALLOC_MAGIC while the block is live
  tw_alloc_hdr* self;  // the header's own address while the block is live
};

// A block of `size` bytes for the caller, not cleared, aligned as by malloc. Null for a size of 0,
// for one of 2147483616 bytes or more, and when memory is exhausted. Released with tw_release().
TW_EXPORT void* tw_allocate(uint64_t size);

// Releases the valid block `block` and returns its former header's address, as a sign only. Null,
// with nothing freed, for null and for anything that is not a live block. The header is wiped
// before the memory goes back, so a second release normally finds no block; it still reads memory
// that is no longer the caller's.
TW_EXPORT tw_alloc_hdr* tw_release(void* block);

// The header of the valid block `block`, else null. Looks at the 32 bytes before the pointer,
// whatever they are: they must be readable. A pointer not aligned for a header is never a block.
TW_EXPORT tw_alloc_hdr* tw_check(void* block);

// The owner's word of a valid block. Setting does nothing, and getting gives null, for any other.
TW_EXPORT void tw_setdata(void* block, void* data);
TW_EXPORT void* tw_getdata(void* block);

// Writes `size` as given, the marker and the header's own address into `header`, which the caller
// owns; its owner's word is left alone.
TW_EXPORT void tw_setheader(tw_alloc_hdr* header, uint64_t size);

// Does nothing; kept for hosts that call it.
TW_EXPORT void tw_allocinfo();

#endif  // BLOCKS_TAGGED_BLOCK_H_
