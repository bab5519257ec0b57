#include "inspect/inventory_budget.h"

#include <algorithm>
#include <atomic>
#include <map>
#include <utility>
#include <vector>

#include "taskwarden/taskwarden.h"

namespace {

// How many names a short form has: the first that makes an inventory smaller.
constexpr size_t kShortForms[] = {64, 8, 1, 0};
std::atomic<size_t> limit{0};

struct Note {
  size_t bytes = 0;
  tw_inventory_rest rest{};
};

// Of those kept, and of the one being taken. Never destroyed: the cycle may run while the host
// exits.
using Notes = std::map<const StringCounter*, Note>;
Notes& notes() {
  static Notes& all = *new Notes;
  return all;
}
size_t all_bytes = 0;
const StringCounter* being_taken = nullptr;

// A node of the map, and what a name takes that does not fit into its string.
size_t bytes_of(std::string_view name) {
  constexpr size_t kNode = 80;
  constexpr size_t kWithin = 15;
  return kNode + (name.size() > kWithin ? name.size() + 16 : 0);
}

size_t bytes_of(const StringCounter& counter) {
  size_t bytes = 0;
  for (const auto& [name, count] : counter) {
    bytes += bytes_of(name);
  }
  return bytes;
}

// Leaves the `names` that occur most.
void shorten(StringCounter* counter, size_t names, tw_inventory_rest* rest) {
  std::vector<StringCounter::iterator> order;
  for (auto at = counter->begin(); at != counter->end(); ++at) {
    order.push_back(at);
  }
  const auto keep = order.begin() + static_cast<ptrdiff_t>(std::min(names, order.size()));
  std::partial_sort(order.begin(), keep, order.end(),
                    [](const auto& a, const auto& b) { return a->second > b->second; });
  for (auto at = keep; at != order.end(); ++at) {
    rest->is_short = true;
    rest->occurrences += (*at)->second;
    rest->most = std::max(rest->most, (*at)->second);
    counter->erase(*at);
  }
}

// False where that is as short as can be.
bool shorten_largest() {
  const auto largest = std::max_element(
      notes().begin(), notes().end(),
      [](const auto& a, const auto& b) { return a.second.bytes < b.second.bytes; });
  auto* const names = const_cast<StringCounter*>(largest->first);
  const auto* const form = std::find_if(std::begin(kShortForms), std::end(kShortForms),
                                        [&](size_t size) { return size < names->size(); });
  if (form == std::end(kShortForms)) {
    return false;
  }
  Note& note = largest->second;
  shorten(names, *form, &note.rest);
  all_bytes -= note.bytes;
  note.bytes = bytes_of(*names);
  all_bytes += note.bytes;
  return true;
}

}  // namespace

void taskwarden_limit_inventories(size_t bytes) {
  limit = bytes;
}

void tw_begin_inventory(StringCounter* counter) {
  if (limit != 0) {
    being_taken = counter;
    notes()[counter] = {};
  }
}

void tw_count_name(StringCounter* counter, std::string_view name) {
  const size_t names = counter->size();
  counter->add(name);
  if (counter == being_taken && counter->size() != names) {
    all_bytes += bytes_of(name);
    notes()[counter].bytes += bytes_of(name);
    while (all_bytes > limit && shorten_largest()) {
    }
  }
}

void tw_let_go_inventory(const StringCounter* counter) {
  const auto found = notes().find(counter);
  if (found == notes().end()) {
    return;
  }
  being_taken = counter == being_taken ? nullptr : being_taken;
  all_bytes -= found->second.bytes;
  notes().erase(found);
}

tw_inventory_rest tw_rest_of_inventory(const StringCounter* counter) {
  const auto found = notes().find(counter);
  return found != notes().end() ? found->second.rest : tw_inventory_rest();
}

StringCounter tw_inventory_growth(StringCounter* previous, StringCounter* current,
                                  int64_t* others) {
  const tw_inventory_rest before = tw_rest_of_inventory(previous);
  const tw_inventory_rest now = tw_rest_of_inventory(current);
  *others = 0;
  if (!before.is_short && !now.is_short) {
    return StringCounter_diff(previous, current);
  }
  StringCounter grown;
  int64_t total = now.occurrences - before.occurrences;
  for (const auto& [name, count] : *previous) {
    total -= count;
  }
  int64_t told = 0;
  for (const auto& [name, count] : *current) {
    total += count;
    const auto found = previous->find(name);
    const int32_t increase = count - (found != previous->end() ? found->second : before.most);
    if (increase >= 1) {
      grown[name] = increase;
      told += increase;
    }
  }
  *others = std::max<int64_t>(0, total - told);
  return grown;
}
