// The memory of a process under the names that people on Linux know, from the text of smaps
// (proc_pid_smaps(5)). Pure.
//
// kind             name          what it is
// heap                           [heap], which brk(2) grows
// stack                          [stack], of the first thread
// thread stacks                  see below
// malloc arenas                  see below
// anonymous        as prctl(2)   other private memory of no file: large blocks, the heaps of JVMs
// and
//                  set it        garbage collectors
// library          path          a file whose name has ".so"
// file             path          any other, the program among them
// deleted file     path          one that has no name any more
// memfd            its name      memfd_create(2)
// shared memory    path          /dev/shm; "System V", by its key; "without a name", of mmap(2)
// huge pages       path          hugetlb pages; the program's resident size does not have them
// device           path          below /dev
// kernel           [vdso] ...    what the kernel maps, and other objects of its own
//
// A thread's stack is an area without a name that may be written, directly above one without any
// rights of at most 64 kB, as pthread_create(3) makes it; where an area of the process has the flag
// nh, which the kernel gives stacks from Linux 6.7 on (MAP_STACK of mmap(2)), only those that have
// it. An arena of malloc(3) begins at a multiple of 64 MiB, and an area without rights behind it
// ends at the next one. Both are the C library's habits, not the kernel's word.
#ifndef HOST_EXPLAIN_MEMORY_NAMES_H_
#define HOST_EXPLAIN_MEMORY_NAMES_H_

#include <cstdint>
#include <string>
#include <string_view>

#include "host/explain/holdings.h"

namespace host {

class MemoryNames {
 public:
  // The next line of smaps, with or without its line feed. What is none of its lines is passed
  // over.
  void take(std::string_view line);
  // What there was up to here: resident and swapped kB by name.
  Holdings ranked();

 private:
  struct Area {
    uint64_t start = 0;
    uint64_t end = 0;
    std::string rights{};  // "rw-p"
    std::string name{};
    bool above_guard = false;
    bool is_marked = false;  // the flag nh
    int64_t resident_kb = 0;
    int64_t swapped_kb = 0;

    bool has(char right) const { return rights.find(right) != rights.npos; }
    bool is_plain() const { return name.empty() && has('w') && has('p'); }
  };

  static bool parse(std::string_view line, Area* area);
  void end_area();
  void settle(bool is_arena);
  static Holding held(const char* kind, std::string_view name, const Area& area);

  Tally tally_;
  Holding marked_{.kind = "thread stacks"};  // areas above a guard, by their flag
  Holding unmarked_{.kind = "thread stacks"};
  Area area_;     // the one being read, if `open_`
  Area waiting_;  // one that is an arena if the next area says so, if `is_waiting_`
  bool open_ = false;
  bool is_waiting_ = false;
};

}  // namespace host

#endif  // HOST_EXPLAIN_MEMORY_NAMES_H_
