#include "host/explain/first_looks.h"

#include <utility>

namespace host {

size_t FirstLooks::cost(const First& first) {
  constexpr size_t kNodes = 128;  // of the list and the map
  return sizeof(Entry) + kNodes + first.name.capacity() + first.holdings.cost() +
         first.folders.cost();
}

const FirstLooks::First* FirstLooks::find(const Key& key, const std::string& name) {
  const auto place = places_.find(key);
  if (place == places_.end()) {
    return nullptr;
  }
  entries_.splice(entries_.begin(), entries_, place->second);
  const First& first = place->second->second;
  return first.name == name ? &first : nullptr;
}

void FirstLooks::forget(const Key& key) {
  if (const auto place = places_.find(key); place != places_.end()) {
    bytes_ -= cost(place->second->second);
    entries_.erase(place->second);
    places_.erase(place);
  }
}

void FirstLooks::keep(const Key& key, First first) {
  forget(key);
  bytes_ += cost(first);
  entries_.emplace_front(key, std::move(first));
  places_[key] = entries_.begin();
  while (bytes_ > most_bytes_ && !entries_.empty()) {
    const Key oldest = entries_.back().first;
    forget(oldest);
  }
}

}  // namespace host
