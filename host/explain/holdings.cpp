#include "host/explain/holdings.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "host/common/words.h"

namespace host {
namespace {

std::string key_of(const Holding& held) {
  return held.kind + '\0' + held.name;
}

}  // namespace

std::string kept_name(std::string_view name) {
  constexpr std::string_view kGap = "...";
  if (name.size() <= kHoldingNameMost) {
    return std::string(name);
  }
  const size_t tail = (kHoldingNameMost - kGap.size()) / 2;
  std::string cut(name.substr(0, kHoldingNameMost - kGap.size() - tail));
  return cut.append(kGap).append(name.substr(name.size() - tail));
}

size_t Holdings::cost() const {
  size_t bytes = sizeof(*this) + largest.capacity() * sizeof(Holding);
  for (const Holding& held : largest) {
    bytes += held.kind.capacity() + held.name.capacity();
  }
  return bytes;
}

void merge(const Holding& more, Holding* sum) {
  sum->amount = sum_of(sum->amount, more.amount);
  sum->swapped_kb = sum_of(sum->swapped_kb, more.swapped_kb);
  sum->areas = sum_of(sum->areas, more.areas);
  sum->largest_kb = std::max(sum->largest_kb, more.largest_kb);
  std::tie(sum->newest_start, sum->newest) = std::max(std::pair(sum->newest_start, sum->newest),
                                                      std::pair(more.newest_start, more.newest));
}

void Tally::add(Holding held) {
  held.name = kept_name(held.name);
  std::string key = key_of(held);
  if (const auto found = held_.find(key); found != held_.end()) {
    merge(held, &found->second);
  } else if (held_.size() < kHoldingsCounted) {
    held_.emplace(std::move(key), std::move(held));
  } else {
    ++untold_;
    untold_amount_ = sum_of(untold_amount_, held.amount);
  }
}

Holdings Tally::ranked(size_t most) const {
  Holdings seen;
  seen.others = untold_;
  seen.others_amount = seen.total = untold_amount_;
  std::vector<const Holding*> order;
  for (const auto& entry : held_) {
    order.push_back(&entry.second);
    seen.total = sum_of(seen.total, entry.second.amount);
  }
  const auto middle = order.begin() + static_cast<ptrdiff_t>(std::min(most, order.size()));
  std::partial_sort(order.begin(), middle, order.end(), [](const auto* a, const auto* b) {
    return std::tie(b->amount, a->kind, a->name) < std::tie(a->amount, b->kind, b->name);
  });
  for (auto at = order.begin(); at != middle; ++at) {
    seen.largest.push_back(**at);
  }
  for (auto at = middle; at != order.end(); ++at) {
    ++seen.others;
    seen.others_amount = sum_of(seen.others_amount, (*at)->amount);
  }
  return seen;
}

std::vector<Growth> grown(const Holdings& before, const Holdings& now) {
  std::vector<Growth> growth;
  if (!before.whole) {
    return growth;
  }
  int64_t unknown = before.others_amount;
  std::unordered_map<std::string, int64_t> amounts;
  for (const Holding& held : before.largest) {
    amounts[key_of(held)] = held.amount;
    unknown = std::min(unknown, held.amount);
  }
  for (const Holding& held : now.largest) {
    const auto found = amounts.find(key_of(held));
    const int64_t more = held.amount - (found != amounts.end() ? found->second : unknown);
    if (more > 0) {
      growth.push_back({held, more});
    }
  }
  std::stable_sort(growth.begin(), growth.end(),
                   [](const Growth& a, const Growth& b) { return a.grown > b.grown; });
  return growth;
}

}  // namespace host
