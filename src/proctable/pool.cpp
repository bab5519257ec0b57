#include "proctable/pool.h"

#include <errno.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>

#include "inspect/line_reader.h"
#include "platform/proc_root.h"

namespace {

// Whole pages: what begins or ends within another object's page could not be given back.
constexpr size_t kPageAlignment = 4096;
alignas(kPageAlignment) tw_process_entry __procentries[TW_PROCESS_SLOTS];
alignas(kPageAlignment) tw_process_note notes[TW_PROCESS_SLOTS];

uintptr_t page_size() {
  static const auto size = static_cast<uintptr_t>(::sysconf(_SC_PAGESIZE));
  return size;
}

// The whole pages within `size` bytes of memory.
struct Pages {
  Pages(const void* memory, size_t size) {
    const auto start = reinterpret_cast<uintptr_t>(memory);
    const uintptr_t page = page_size();
    begin = (start + page - 1) / page * page;
    end = std::max(begin, (start + size) / page * page);
  }
  size_t size() const { return end - begin; }
  void* address() const { return reinterpret_cast<void*>(begin); }

  uintptr_t begin;
  uintptr_t end;
};

// A huge page would make one touched slot cost 2 MiB, and locked memory is all in use. Where an
// advice is unknown nothing is lost but that.
void keep_small(const Pages& pages) {
  ::madvise(pages.address(), pages.size(), MADV_NOHUGEPAGE);
  ::munlock(pages.address(), pages.size());
}

uint64_t number_in(const char* file) {
  LineReader lines = LineReader::open(ProcPath(file).c_str());
  const std::string_view line = lines.ok() ? lines.next() : std::string_view();
  uint64_t number = 0;
  std::from_chars(line.data(), line.data() + line.size(), number);
  return number;
}

bool reservations_are_charged() {
  constexpr uint64_t kNeverOvercommit = 2;
  return number_in("/sys/vm/overcommit_memory") == kNeverOvercommit;
}

// Inaccessible first, so that a host which locks all its memory to come does not fill it.
void* reserve_private(size_t size) {
  void* const memory =
      ::mmap(nullptr, size, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (memory == MAP_FAILED) {
    return nullptr;
  }
  keep_small({memory, size});
  if (::mprotect(memory, size, PROT_READ | PROT_WRITE) != 0) {
    const int error = errno;
    ::munmap(memory, size);
    errno = error;
    return nullptr;
  }
  return memory;
}

void* reserve_file(size_t size) {
  const unique_fd file = tw_own_fd(::memfd_create("taskwarden", MFD_CLOEXEC));
  if (!file.ok() || ::ftruncate(file.get(), static_cast<off_t>(size)) != 0) {
    return nullptr;
  }
  void* const memory = ::mmap(nullptr, size, PROT_NONE, MAP_SHARED, file.get(), 0);
  if (memory == MAP_FAILED) {
    return nullptr;
  }
  keep_small({memory, size});
  ::mprotect(memory, size, PROT_READ | PROT_WRITE);
  return memory;
}

bool is_zero(const char* page, size_t size) {
  return page[0] == 0 && memcmp(page, page + 1, size - 1) == 0;
}

// Each page of `all` that `size` bytes at `part` lie in.
void give_back(const Pages& all, const void* part, size_t size, bool is_shared) {
  const uintptr_t page = page_size();
  const auto start = reinterpret_cast<uintptr_t>(part);
  for (uintptr_t at = start / page * page; at < start + size; at += page) {
    auto* const address = reinterpret_cast<char*>(at);
    if (at < all.begin || at >= all.end || !is_zero(address, page)) {
      continue;
    }
    const int advice = is_shared ? MADV_REMOVE : MADV_DONTNEED;
    if (::madvise(address, page, advice) != 0 && errno == EINVAL) {
      // Locked since it was reserved (madvise(2)).
      ::munlock(all.address(), all.size());
      ::madvise(address, page, advice);
    }
  }
}

}  // namespace

tw_process_pool tw_process_pool_reserve(uint64_t pid_limit) {
  // Whichever is used: the static one is there in any case.
  keep_small({__procentries, sizeof(__procentries)});
  keep_small({notes, sizeof(notes)});
  const tw_process_pool small = {__procentries, notes, TW_PROCESS_SLOTS, false, false};
  if (pid_limit <= TW_PROCESS_SLOTS) {
    return small;
  }
  const auto slots = static_cast<uint32_t>(std::min<uint64_t>(pid_limit, TW_LARGEST_PID_LIMIT));
  const size_t size = slots * (sizeof(tw_process_entry) + sizeof(tw_process_note));
  const bool is_shared = reservations_are_charged();
  void* const memory = is_shared ? reserve_file(size) : reserve_private(size);
  if (memory == nullptr) {
    tw_process_pool refused = small;
    refused.refused = true;
    return refused;
  }
  auto* const entries = static_cast<tw_process_entry*>(memory);
  void* const behind = entries + slots;
  return {entries, static_cast<tw_process_note*>(behind), slots, false, is_shared};
}

void tw_process_pool_give_back(const tw_process_pool& pool, uint32_t pid) {
  const tw_process_entry& entry = pool.entries[pid];
  give_back({pool.entries, pool.slots * sizeof(entry)}, &entry, sizeof(entry), pool.is_shared);
  const tw_process_note& note = pool.notes[pid];
  give_back({pool.notes, pool.slots * sizeof(note)}, &note, sizeof(note), pool.is_shared);
}

uint64_t tw_kernel_pid_limit() {
  return number_in("/sys/kernel/pid_max");
}
