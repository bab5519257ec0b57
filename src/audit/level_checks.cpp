#include "audit/level_checks.h"

#include "audit/event_block.h"
#include "audit/event_draft.h"
#include "audit/event_facts.h"
#include "report/reporter.h"

namespace {

// In 64 bits: on a machine with more than 1 TiB free the 32-bit sum would overflow.
int64_t sum_of(const LevelCheck& check, const void* data) {
  const int64_t first = check.first.read(data);
  return check.second.read != nullptr ? first + check.second.read(data) : first;
}

bool is_reached(const LevelCheck& check, int64_t sum) {
  return check.at_most ? sum <= check.limit : sum >= check.limit;
}

void report_detail(const LevelCheck& check, const void* data) {
  const LevelFigure& first = check.first;
  const LevelFigure& second = check.second;
  if (second.read == nullptr) {
    TW_REPORT("-> audit evnet: %s %u\n", first.label, static_cast<unsigned>(first.read(data)));
  } else {
    TW_REPORT("-> audit evnet: %s %u, %s %u\n", first.label,
              static_cast<unsigned>(first.read(data)), second.label,
              static_cast<unsigned>(second.read(data)));
  }
}

}  // namespace

std::vector<int32_t> tw_check_levels(int32_t source, const void* data) {
  std::vector<int32_t> raised;
  for (const EventFacts& facts : tw_event_facts()) {
    const LevelCheck& check = facts.level;
    if (facts.source() != source || check.first.read == nullptr ||
        (check.alone && !raised.empty())) {
      continue;
    }
    const int64_t sum = sum_of(check, data);
    if (is_reached(check, sum)) {
      tw_report_event_head(facts.kind.name);
      report_detail(check, data);
      EventDraft::current().set_levels(facts.id(), check.limit, sum);
      raised.push_back(facts.id());
    }
  }
  return raised;
}
