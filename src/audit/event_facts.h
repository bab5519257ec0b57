// All that is known of the kinds of events, in one table: what each measures, when it is raised,
// how it reads in the log, who sends its record. The hubs run over it, the handler looks its event
// up in it, and hosts get its public half (taskwarden_event_kind).
#ifndef AUDIT_EVENT_FACTS_H_
#define AUDIT_EVENT_FACTS_H_

#include <cstdint>
#include <span>

#include "audit/event_ids.h"
#include "proctable/desc_field.h"
#include "taskwarden/observers.h"

// When a number of a process counts as grown above its level.
enum class Growth {
  kNotMeasured,
  kByHalf,        // more than one and a half times the level, as signed numbers
  kByHalfOrStep,  // that, or more than `step` above the level, as unsigned ones
  kAtAll,         // above the level, as signed numbers
};

// One number of a process, held against its level in the baseline.
struct GrowthCheck {
  DescField current;
  DescField level;  // in the baseline
  DescField next;   // what the level becomes when the check fires
  Growth growth = Growth::kNotMeasured;
  uint64_t step = 0;
  bool first_is_silent = false;  // a level of 0 is only raised, without an event
};

// A figure of the table or of the machine's memory.
struct LevelFigure {
  const char* label;  // in the log
  const char* name;   // in a row for observers
  int32_t (*read)(const void* data);
};

// One or two such figures, whose sum is held against a fixed limit.
struct LevelCheck {
  LevelFigure first{};
  LevelFigure second{};  // none where its `read` is null
  int32_t limit = 0;
  bool at_most = false;  // raised at the limit and below, instead of at and above
  bool alone = false;    // only where the poll has raised nothing else
};

// How the handler acts on an event.
enum class Reaction {
  kNothing,
  kReleaseBlocks,
  kHeadline,   // `headline` alone
  kThreads,    // and the threads by name
  kOpenFiles,  // and the open files by name
  kDivisions,  // and the memory by division
  kCounts,
  kRuntimeRank,
  kNativeRank,
  kSlabCensus,
};

enum class Sender { kNobody, kHub, kHandler };

struct EventFacts {
  taskwarden_event_kind kind;
  const char* wording = nullptr;  // of growth, in the detail line
  GrowthCheck growth{};
  LevelCheck level{};
  Reaction reaction = Reaction::kNothing;
  const char* headline = nullptr;  // of what the handler says, before "in proc"
  Sender sender = Sender::kNobody;

  int32_t id() const { return kind.id; }
  int32_t source() const { return kind.about; }
};

// In the order in which a hub raises its events.
std::span<const EventFacts> tw_event_facts();

// Null for an id that is none of ours.
const EventFacts* tw_find_event_facts(int32_t id);

#endif  // AUDIT_EVENT_FACTS_H_
