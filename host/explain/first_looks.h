// What processes held when they were first looked at, so that a later look can tell what grew
// since. Bounded: together they take about kFirstLooksBytes, beyond which those that were not asked
// for the longest are let go; what grew since is then told from the next look on. One thread at a
// time.
#ifndef HOST_EXPLAIN_FIRST_LOOKS_H_
#define HOST_EXPLAIN_FIRST_LOOKS_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <list>
#include <map>
#include <string>
#include <tuple>

#include "host/explain/holdings.h"
#include "host/explain/look.h"

namespace host {

inline constexpr size_t kFirstLooksBytes = 512 << 10;

class FirstLooks {
 public:
  // Whose look, at what, and for whom: the events and the verdicts have first looks of their own.
  struct Key {
    int64_t pid = 0;
    uint64_t start = 0;
    Part part = Part::kMemory;
    bool for_verdicts = false;
    auto operator<=>(const Key&) const = default;
  };

  struct First {
    std::chrono::system_clock::time_point time{};
    std::string name{};  // the process's then: after an exec(2) the rest says nothing
    Holdings holdings{};
    Holdings folders{};  // of files
  };

  explicit FirstLooks(size_t most_bytes = kFirstLooksBytes) : most_bytes_(most_bytes) {}

  // Null where there is none, or one of another name. Valid until the next call.
  const First* find(const Key& key, const std::string& name);
  // Takes the place of the one before.
  void keep(const Key& key, First first);
  void forget(const Key& key);

  size_t bytes() const { return bytes_; }

 private:
  using Entry = std::pair<Key, First>;

  static size_t cost(const First& first);

  const size_t most_bytes_;
  size_t bytes_ = 0;
  std::list<Entry> entries_;  // the one that was asked for last comes first
  std::map<Key, std::list<Entry>::iterator> places_;
};

}  // namespace host

#endif  // HOST_EXPLAIN_FIRST_LOOKS_H_
