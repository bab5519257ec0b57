#include "host/inspect/look_difference.h"

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <utility>

#include "host/common/time_words.h"
#include "host/explain/look_words.h"

namespace host {
namespace {

constexpr size_t kRowsTold = 24;

struct Told {
  Part part;
  const char* key;
  const char* total;
  const char* words;
  const char* unit;
};
constexpr Told kTold[] = {{Part::kMemory, "memory", "memory_kb", "memory ", " kB"},
                          {Part::kFiles, "files", "open_files", "open files ", ""},
                          {Part::kThreads, "threads", "threads", "threads ", ""}};

bool both_known(const Look& before, const Look& now, Part part) {
  return before.of(part).is_known && now.of(part).is_known;
}

int64_t change(const Look& before, const Look& now, Part part) {
  return now.of(part).holdings.total - before.of(part).holdings.total;
}

std::string with_sign(int64_t number) {
  return (number < 0 ? "" : "+") + std::to_string(number);
}

// What grew from `a` to `b`.
Rows rows_between(const Look& a, const Look& b, Part part) {
  return grown_rows(a.of(part).holdings, a.of(Part::kFolders).holdings, b, part, kRowsTold);
}

// What shrank grew the other way round: the amounts that it has now are what is left.
Rows rows_back(const Look& before, const Look& now, Part part) {
  Rows rows = rows_between(now, before, part);
  for (Growth& row : rows.rows) {
    row = {{.kind = row.now.kind, .name = row.now.name, .amount = row.now.amount - row.grown},
           -row.grown};
  }
  return rows;
}

}  // namespace

std::vector<std::string> difference_lines(const Look& before, const Look& now) {
  std::vector<std::string> lines;
  std::string totals;
  for (const Told& told : kTold) {
    if (now.of(told.part).is_known) {
      totals += (totals.empty() ? "" : ", ") + std::string(told.words) +
                std::to_string(now.of(told.part).holdings.total) + told.unit;
    }
    if (both_known(before, now, told.part)) {
      totals += " (" + with_sign(change(before, now, told.part)) + ")";
    }
  }
  lines.push_back(totals.empty() ? "not readable" : totals);
  for (const Told& told : kTold) {
    if (!both_known(before, now, told.part)) {
      continue;
    }
    for (const Rows& rows :
         {rows_between(before, now, told.part), rows_back(before, now, told.part)}) {
      for (const std::string& line : row_lines(now, told.part, rows)) {
        lines.push_back("  " + line);
      }
    }
  }
  return lines;
}

Json difference_object(const Look& before, const Look& now) {
  using std::chrono::duration;
  Json object = {{"time", iso_time(now.time)},
                 {"seconds", duration<double>(now.time - before.time).count()}};
  Json grew = Json::object();
  Json shrank = Json::object();
  for (const Told& told : kTold) {
    const bool known = both_known(before, now, told.part);
    const std::string total = told.total;
    object[total] = now.of(told.part).is_known ? Json(now.of(told.part).holdings.total) : Json();
    object[total + "_change"] = known ? Json(change(before, now, told.part)) : Json();
    grew[told.key] =
        known ? row_list(now, told.part, rows_between(before, now, told.part)) : Json();
    shrank[told.key] = known ? row_list(now, told.part, rows_back(before, now, told.part)) : Json();
  }
  object["grew"] = std::move(grew);
  object["shrank"] = std::move(shrank);
  return object;
}

}  // namespace host
