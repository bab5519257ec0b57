#include "host/watch/resident_code.h"

#include <link.h>
#include <stdint.h>
#include <sys/mman.h>
#include <unistd.h>

namespace host {
namespace {

int give_back_object(dl_phdr_info* object, size_t, void*) {
  const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  for (int i = 0; i < object->dlpi_phnum; ++i) {
    const auto& segment = object->dlpi_phdr[i];
    if (segment.p_type != PT_LOAD || (segment.p_flags & PF_W) != 0) {
      continue;
    }
    // A whole page of the segment at least on both sides: the next may be another's.
    const uintptr_t begin = (object->dlpi_addr + segment.p_vaddr + page - 1) / page * page;
    const uintptr_t end = (object->dlpi_addr + segment.p_vaddr + segment.p_filesz) / page * page;
    if (begin < end) {
      ::madvise(reinterpret_cast<void*>(begin), end - begin, MADV_DONTNEED);
    }
  }
  return 0;
}

}  // namespace

void give_back_code() {
  ::dl_iterate_phdr(give_back_object, nullptr);
}

}  // namespace host
