#include "audit/proc_entry_event_hub.h"

#include "audit/event_block.h"
#include "audit/event_draft.h"
#include "audit/event_facts.h"
#include "proctable/process_records.h"
#include "report/event_record.h"
#include "report/reporter.h"

namespace {

bool has_grown(const GrowthCheck& check, uint64_t current, uint64_t level) {
  // In 64 bits: the file's text may hold any 32-bit count, and three times it must not overflow.
  const auto signed_current = static_cast<int64_t>(current);
  const auto signed_level = static_cast<int64_t>(level);
  switch (check.growth) {
    case Growth::kNotMeasured:
      return false;
    case Growth::kByHalf:
      return signed_current * 2 > signed_level * 3;
    case Growth::kByHalfOrStep:
      return current * 2 > level * 3 || current > level + check.step;
    case Growth::kAtAll:
      return signed_current > signed_level;
  }
  return false;
}

void raise(const tw_process_entry& entry, const EventFacts& facts, uint64_t level,
           uint64_t current) {
  tw_report_event_head(facts.kind.name);
  TW_REPORT("-> audit evnet by proc %u \"%s\": %s %u -> %u\n", entry.pid, entry.desc.name,
            facts.wording, static_cast<uint32_t>(level), static_cast<uint32_t>(current));
  EventDraft& draft = EventDraft::current();
  draft.set_levels(facts.id(), static_cast<int64_t>(level), static_cast<int64_t>(current));
  if (facts.sender == Sender::kHub) {
    draft.set_record(facts.id(),
                     tw_send_record(static_cast<int32_t>(entry.pid), static_cast<int64_t>(current),
                                    facts.kind.name, entry.desc.name, ""));
  }
}

}  // namespace

std::vector<int32_t> ProcEntryEventHub::retrieve(void* data) {
  auto& entry = *static_cast<tw_process_entry*>(data);
  std::vector<int32_t> raised;
  for (const EventFacts& facts : tw_event_facts()) {
    const GrowthCheck& check = facts.growth;
    if (check.growth == Growth::kNotMeasured) {
      continue;
    }
    const uint64_t current = check.current.get(entry.desc);
    const uint64_t level = check.level.get(entry.baseline);
    if (!has_grown(check, current, level)) {
      continue;
    }
    if (level != 0 || !check.first_is_silent) {
      raised.push_back(facts.id());
      raise(entry, facts, level, current);
    }
    check.level.set(&entry.baseline, check.next.get(entry.desc));
  }
  return raised;
}
