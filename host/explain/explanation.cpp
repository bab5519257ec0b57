#include "host/explain/explanation.h"

#include <algorithm>
#include <utility>

#include "host/common/time_words.h"

namespace host {
namespace {

constexpr size_t kRowsTold = 5;

std::string part_words(Part part) {
  return part == Part::kMemory ? "memory" : part == Part::kThreads ? "threads" : "open files";
}

}  // namespace

Explanation Explanations::explain(const Question& question) {
  const std::lock_guard lock(mutex_);
  LookAsked asked;
  asked.whom = {.pid = static_cast<int>(question.pid),
                .proc_root = options_.proc_root,
                .no_arguments = options_.no_arguments};
  asked.threads = question.part == Part::kThreads;
  asked.files = question.part == Part::kFiles;
  asked.memory = question.part == Part::kMemory;
  asked.patience = options_.patience;
  Explanation told{.look = look_at(asked), .part = question.part};
  Look& look = told.look;
  if (question.start != 0 && look.whom.start != 0 && look.whom.start != question.start) {
    look.exists = false;
  }
  if (!look.exists) {
    return told;
  }
  told.rows = held_rows(look, question.part, kRowsTold);
  const Look::Held& held = look.of(question.part);
  if (!held.is_known) {
    return told;
  }
  const FirstLooks::Key key = {question.pid, look.whom.start, question.part, question.for_verdict};
  const FirstLooks::First* const first = first_looks_.find(key, question.name);
  if (question.is_first || first == nullptr || !first->holdings.whole) {
    first_looks_.keep(key,
                      {look.time, question.name, held.holdings, look.of(Part::kFolders).holdings});
    return told;
  }
  told.since = first->time;
  told.rows = grown_rows(first->holdings, first->folders, look, question.part, kRowsTold);
  return told;
}

std::vector<std::string> Explanation::lines() const {
  std::vector<std::string> lines;
  if (is_empty()) {
    return lines;
  }
  const auto add = [&](const std::vector<std::string>& texts) {
    for (const std::string& row : texts) {
      lines.push_back("\t " + row);
    }
  };
  lines.emplace_back("-> Who it is:");
  add(whom_lines(look.whom));
  const std::string what = part_words(part);
  if (!look.of(part).is_known) {
    lines.push_back("-> Its " + what + " could not be read: " + look.of(part).why);
    return lines;
  }
  if (!since) {
    lines.push_back("-> Its " + what + " by name:");
  } else {
    using std::chrono::seconds;
    const auto age = std::chrono::duration_cast<seconds>(look.time - *since).count();
    lines.push_back("-> Its " + what +
                    (rows.rows.empty() ? " grew under no name since " : " that grew since ") +
                    iso_time(*since) + ", " + span_words(static_cast<double>(age)) + " ago" +
                    (rows.rows.empty() ? "" : ":"));
  }
  add(row_lines(look, part, rows));
  return lines;
}

void Explanation::add_to(Json* object) const {
  if (is_empty()) {
    return;
  }
  (*object)["who"] = whom_object(look.whom);
  if (!look.of(part).is_known) {
    return;
  }
  (*object)[since ? "grew" : "holds"] = row_list(look, part, rows);
  if (since) {
    (*object)["grew_since"] = iso_time(*since);
  }
}

}  // namespace host
