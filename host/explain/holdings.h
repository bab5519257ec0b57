// What a process holds of one resource (memory, descriptors, threads), by name and ranked; and what
// there is more of in a later look than in an earlier one. Pure; names are any bytes.
#ifndef HOST_EXPLAIN_HOLDINGS_H_
#define HOST_EXPLAIN_HOLDINGS_H_

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace host {

inline constexpr size_t kHoldingsKept = 24;       // names that a summary has, the rest being one
inline constexpr size_t kHoldingNameMost = 127;   // bytes of a name that are kept
inline constexpr size_t kHoldingsCounted = 8192;  // names told apart while a process is read

// Members that a resource does not have are 0.
struct Holding {
  std::string kind{};         // "heap", "library", "socket": one of few words
  std::string name{};         // empty where the kind says it all
  int64_t amount = 0;         // kB resident and swapped; descriptors; threads
  int64_t swapped_kb = 0;     // of the amount
  int64_t areas = 0;          // mappings that have it
  int64_t largest_kb = 0;     // the largest of them
  int64_t newest = 0;         // the thread that started last,
  uint64_t newest_start = 0;  // in clock ticks after boot
};

struct Holdings {
  std::vector<Holding> largest{};  // the largest first; equals by kind and name
  int64_t others = 0;              // names that are left out,
  int64_t others_amount = 0;       // and what they hold together
  int64_t total = 0;
  bool whole = true;  // false: reading ended early, so there is more of everything

  // Roughly the bytes that it takes.
  size_t cost() const;
};

// Adds `more`, of the same name, to `sum`: amounts and areas are summed; of the largest area and
// the newest thread the greater stays.
void merge(const Holding& more, Holding* sum);

// Counts holdings by kind and name while a process is read. What comes when there are
// kHoldingsCounted names and is none of them counts with the others.
class Tally {
 public:
  // Adds to what is there under the same kind and name, which is cut, as by merge().
  void add(Holding held);
  // The `most` largest of what has been added.
  Holdings ranked(size_t most = kHoldingsKept) const;

 private:
  std::unordered_map<std::string, Holding> held_;
  int64_t untold_ = 0;
  int64_t untold_amount_ = 0;
};

// Something that there is more of than before.
struct Growth {
  Holding now{};
  int64_t grown = 0;  // of the amount
};

// What grew from `before` to `now`, most first: never more than it grew, so that a name which
// `before` has left out counts as having held as much as it can have. Empty where `before` is not
// whole.
std::vector<Growth> grown(const Holdings& before, const Holdings& now);

// The name as a Holding keeps it: cut in the middle, so that the end of a path stays.
std::string kept_name(std::string_view name);

}  // namespace host

#endif  // HOST_EXPLAIN_HOLDINGS_H_
