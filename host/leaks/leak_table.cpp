#include "host/leaks/leak_table.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <tuple>

#include "host/common/escape.h"
#include "host/common/time_words.h"
#include "host/verdict/sentence.h"

namespace host {
namespace {

constexpr size_t kColumns = 9;
using Row = std::vector<std::string>;

// Of a longer text the end tells more: the program's name in its path.
std::string cut(const std::string& text, size_t most) {
  return text.size() <= most ? text : "..." + text.substr(text.size() - most + 3);
}

Row row_of(const ToldVerdict& verdict, std::chrono::system_clock::time_point now) {
  const auto resource = verdict.resource;
  const std::chrono::duration<double> ago = now - verdict.since;
  std::string limit = "-";
  if (verdict.limit) {
    limit = level_words(resource, *verdict.limit) +
            (verdict.seconds_to_limit ? " in " + span_words(*verdict.seconds_to_limit) : "");
  }
  return {judge::state_name(verdict.state),
          std::to_string(verdict.pid),
          cut(escape_text(verdict.name), 32),
          verdict.unit.empty() ? "-" : cut(escape_text(verdict.unit), 32),
          resource_words(resource),
          level_words(resource, verdict.from) + " -> " + level_words(resource, verdict.now),
          verdict.rate_per_hour ? rate_words(resource, *verdict.rate_per_hour) : "-",
          span_words(std::max(0.0, ago.count())) + " ago",
          limit};
}

}  // namespace

std::vector<ToldVerdict> by_urgency(std::vector<ToldVerdict> verdicts, bool all) {
  if (!all) {
    std::erase_if(verdicts,
                  [](const ToldVerdict& one) { return one.state < judge::State::kConfirmed; });
  }
  const auto key = [](const ToldVerdict& one) {
    return std::tuple(-static_cast<int>(one.state), one.seconds_to_limit.value_or(HUGE_VAL),
                      -one.rate_per_hour.value_or(0), one.pid, one.resource);
  };
  std::sort(verdicts.begin(), verdicts.end(),
            [&](const ToldVerdict& a, const ToldVerdict& b) { return key(a) < key(b); });
  return verdicts;
}

std::string leak_table(const FeedView& view, bool all, std::chrono::system_clock::time_point now) {
  const std::vector<ToldVerdict> verdicts = by_urgency(view.standing(), all);
  if (verdicts.empty()) {
    const std::chrono::duration<double> passed = now - view.figures().since;
    const size_t suspected = all ? 0 : view.standing().size();
    return "Nothing leaks: " + std::to_string(view.figures().processes) +
           " processes watched for " + span_words(std::max(0.0, passed.count())) +
           (suspected == 0 ? "" : "; suspected: " + std::to_string(suspected) + " (see --all)") +
           ".\n";
  }
  std::vector<Row> rows = {
      {"STATE", "PID", "NAME", "UNIT", "WHAT", "FROM -> NOW", "RATE", "SINCE", "LIMIT"}};
  for (const ToldVerdict& verdict : verdicts) {
    rows.push_back(row_of(verdict, now));
  }
  size_t widths[kColumns] = {};
  for (const Row& row : rows) {
    for (size_t i = 0; i < kColumns; ++i) {
      widths[i] = std::max(widths[i], row[i].size());
    }
  }
  std::string text;
  for (const Row& row : rows) {
    for (size_t i = 0; i < kColumns; ++i) {
      text += row[i] + (i + 1 < kColumns ? std::string(widths[i] - row[i].size() + 2, ' ') : "\n");
    }
  }
  return text;
}

}  // namespace host
