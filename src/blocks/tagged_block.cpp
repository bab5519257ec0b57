#include "blocks/tagged_block.h"

#include <stdlib.h>

namespace {

constexpr uint64_t kLargestBlock = INT32_MAX;

}  // namespace

void* tw_allocate(uint64_t size) {
  if (size == 0 || size > kLargestBlock - sizeof(tw_alloc_hdr)) {
    return nullptr;
  }
  const uint64_t total = size + sizeof(tw_alloc_hdr);
  auto* header = static_cast<tw_alloc_hdr*>(malloc(total));
  if (header == nullptr) {
    return nullptr;
  }
  header->data = nullptr;
  tw_setheader(header, total);
  return header + 1;
}

tw_alloc_hdr* tw_release(void* block) {
  tw_alloc_hdr* header = tw_check(block);
  if (header == nullptr) {
    return nullptr;
  }
  // Through a volatile: a compiler drops plain stores to memory that is about to be freed, and the
  // wiped marker is what a second release must find.
  volatile tw_alloc_hdr* wiped = header;
  wiped->size = 0;
  wiped->data = nullptr;
  wiped->magic = 0;
  wiped->self = nullptr;
  // As a number: the pointer itself means nothing once the memory is gone.
  const auto address = reinterpret_cast<uintptr_t>(header);
  free(header);
  return reinterpret_cast<tw_alloc_hdr*>(address);
}

// Looking at a header that may be foreign or freed is the purpose of this function, so the
// sanitizers are told to let it.
__attribute__((no_sanitize("address", "thread"))) tw_alloc_hdr* tw_check(void* block) {
  if (block == nullptr || reinterpret_cast<uintptr_t>(block) % alignof(tw_alloc_hdr) != 0) {
    return nullptr;
  }
  auto* header = static_cast<tw_alloc_hdr*>(block) - 1;
  return header->magic == TW_ALLOC_MAGIC && header->self == header ? header : nullptr;
}

void tw_setdata(void* block, void* data) {
  tw_alloc_hdr* header = tw_check(block);
  if (header != nullptr) {
    header->data = data;
  }
}

void* tw_getdata(void* block) {
  const tw_alloc_hdr* header = tw_check(block);
  return header != nullptr ? header->data : nullptr;
}

void tw_setheader(tw_alloc_hdr* header, uint64_t size) {
  header->size = size;
  header->magic = TW_ALLOC_MAGIC;
  header->self = header;
}

void tw_allocinfo() {}
