#include "proctable/pool.h"

#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "inspect/line_reader.h"
#include "platform/proc_root.h"

namespace {

tw_process_entry __procentries[TW_PROCESS_SLOTS];
tw_fd_listing listings[TW_PROCESS_SLOTS];

// A huge page would make one touched slot cost 2 MiB. Where the advice is unknown nothing is lost
// but that.
void advise_small_pages(void* memory, size_t size) {
  const auto page = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  const auto start = reinterpret_cast<uintptr_t>(memory);
  const uintptr_t from = (start + page - 1) / page * page;
  ::madvise(reinterpret_cast<void*>(from), start + size - from, MADV_NOHUGEPAGE);
}

}  // namespace

tw_process_pool tw_process_pool_reserve(uint64_t pid_limit) {
  if (pid_limit > TW_PROCESS_SLOTS) {
    const auto slots = static_cast<uint32_t>(std::min<uint64_t>(pid_limit, TW_LARGEST_PID_LIMIT));
    const size_t size = slots * (sizeof(tw_process_entry) + sizeof(tw_fd_listing));
    void* memory = ::mmap(nullptr, size, PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory != MAP_FAILED) {
      advise_small_pages(memory, size);
      auto* const entries = static_cast<tw_process_entry*>(memory);
      void* const behind = entries + slots;
      return {entries, static_cast<tw_fd_listing*>(behind), slots};
    }
  }
  advise_small_pages(__procentries, sizeof(__procentries));
  return {__procentries, listings, TW_PROCESS_SLOTS};
}

uint64_t tw_kernel_pid_limit() {
  LineReader lines = LineReader::open(ProcPath("/sys/kernel/pid_max").c_str());
  const std::string_view line = lines.ok() ? lines.next() : std::string_view();
  uint64_t limit = 0;
  std::from_chars(line.data(), line.data() + line.size(), limit);
  return limit;
}
