#include "proctable/pool.h"

#include <stdlib.h>
#include <sys/mman.h>

#include <algorithm>

#include "inspect/line_reader.h"
#include "platform/proc_root.h"

namespace {

tw_process_entry __procentries[TW_PROCESS_SLOTS];

}  // namespace

tw_process_pool tw_process_pool_reserve(uint64_t pid_limit) {
  if (pid_limit > TW_PROCESS_SLOTS) {
    const auto slots = static_cast<uint32_t>(std::min<uint64_t>(pid_limit, TW_LARGEST_PID_LIMIT));
    void* memory = ::mmap(nullptr, slots * sizeof(tw_process_entry), PROT_READ | PROT_WRITE,
                          MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory != MAP_FAILED) {
      // A huge page would make one touched slot cost 2 MiB. Where the advice is unknown nothing is
      // lost but that.
      ::madvise(memory, slots * sizeof(tw_process_entry), MADV_NOHUGEPAGE);
      return {static_cast<tw_process_entry*>(memory), slots};
    }
  }
  return {__procentries, TW_PROCESS_SLOTS};
}

uint64_t tw_kernel_pid_limit() {
  char path[TW_PATH_SIZE];
  tw_proc_path(path, "/sys/kernel/pid_max");
  LineReader lines = LineReader::open(path);
  const char* line = lines.ok() ? lines.next() : nullptr;
  return line != nullptr && line[0] >= '0' && line[0] <= '9' ? strtoull(line, nullptr, 10) : 0;
}
