// A tally of names: how often each occurs in one inventory of a process. Names are byte strings,
// ordered by their unsigned bytes. It is used like the ordered map that it is, and can be built in
// storage of the caller's.
#ifndef INSPECT_STRING_COUNTER_H_
#define INSPECT_STRING_COUNTER_H_

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "taskwarden/export.h"

struct StringCounter : std::map<std::string, int32_t> {
  using map::map;

  // Counts `times` occurrences of `name`, which enters with 0 if it is new.
  void add(std::string_view name, int32_t times = 1) { (*this)[std::string(name)] += times; }
};

// What grew: each name whose count is higher in `current` than in `previous` (absent: 0), with the
// difference. Names that fell or vanished are left out. Neither may be null, and neither is
// changed. Any thread.
TW_EXPORT StringCounter StringCounter_diff(StringCounter* previous, StringCounter* current);

#endif  // INSPECT_STRING_COUNTER_H_
