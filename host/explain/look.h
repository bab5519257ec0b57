// One look at one process: who it is and what it holds, read by a child process within a bounded
// time, so that neither a process that keeps its readers waiting nor one that is huge holds anybody
// up. Any thread.
#ifndef HOST_EXPLAIN_LOOK_H_
#define HOST_EXPLAIN_LOOK_H_

#include <chrono>
#include <cstddef>
#include <string>

#include "host/explain/holdings.h"
#include "host/explain/whom.h"

namespace host {

// What a process holds of one resource.
enum class Part { kThreads, kFiles, kFolders, kMemory };
inline constexpr Part kParts[] = {Part::kThreads, Part::kFiles, Part::kFolders, Part::kMemory};

// "threads", "files", "folders", "memory".
const char* part_name(Part part);

struct Look {
  struct Held {
    bool is_known = false;
    std::string why{};  // it is not known, though it was asked for
    Holdings holdings{};
  };

  std::chrono::system_clock::time_point time{};
  bool exists = false;  // there was such a process from the first to the last file
  Whom whom{};
  Held held[std::size(kParts)]{};

  Held& of(Part part) { return held[static_cast<size_t>(part)]; }
  const Held& of(Part part) const { return held[static_cast<size_t>(part)]; }
};

struct LookAsked {
  WhomAsked whom{};
  // Files come with their folders.
  bool threads = true;
  bool files = true;
  bool memory = true;
  // If false, what comes from its memory is not read, and told as what did not answer in time.
  bool memory_answers = true;
  std::chrono::milliseconds patience{100};
};

// Looks. What could not be read in time is not known, or not whole. A process that is no longer the
// same at the end does not exist.
Look look_at(const LookAsked& asked);

// What is read of one process at the most.
inline constexpr size_t kSmapsMost = 64 << 20;        // bytes
inline constexpr size_t kSocketTableMost = 16 << 20;  // bytes of each

}  // namespace host

#endif  // HOST_EXPLAIN_LOOK_H_
