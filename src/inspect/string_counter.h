// A tally of names: how often each occurs in one inventory of a process. Names are byte strings,
// ordered by their unsigned bytes. A value that owns its entries and can be built in storage of the
// caller's.
#ifndef INSPECT_STRING_COUNTER_H_
#define INSPECT_STRING_COUNTER_H_

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <string_view>

class StringCounter {
 public:
  using Map = std::map<std::string, int32_t, std::less<>>;

  // Counts `times` occurrences of `name`, which enters with 0 if it is new.
  void add(std::string_view name, int32_t times = 1);
  void clear() { counts_.clear(); }
  // The number of distinct names.
  size_t size() const { return counts_.size(); }
  // The count of `name`, 0 if it is absent.
  int32_t count(std::string_view name) const;

  // Entries (name, count) in ascending order.
  Map::const_iterator begin() const { return counts_.begin(); }
  Map::const_iterator end() const { return counts_.end(); }

 private:
  Map counts_;
};

// What grew: each name whose count is higher in `current` than in `previous` (absent: 0), with the
// difference. Names that fell or vanished are left out. Neither may be null.
StringCounter StringCounter_diff(const StringCounter* previous, const StringCounter* current);

#endif  // INSPECT_STRING_COUNTER_H_
