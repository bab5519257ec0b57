#include "audit/audit_event_handler.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "audit/entry_blocks.h"
#include "audit/event_block.h"
#include "audit/event_draft.h"
#include "audit/event_facts.h"
#include "audit/process_collector.h"
#include "blocks/tagged_block.h"
#include "inspect/inventory_budget.h"
#include "inspect/open_files.h"
#include "inspect/open_files_count.h"
#include "inspect/smaps.h"
#include "inspect/system/slabinfo.h"
#include "inspect/thread_family.h"
#include "inspect/threads.h"
#include "interest/interest_mark.h"
#include "proctable/process_records.h"
#include "report/event_record.h"
#include "report/reporter.h"

namespace {

EventDraft& draft() {
  return EventDraft::current();
}

void add_figure(const char* name, int64_t value) {
  draft().add(tw_row(TASKWARDEN_ROW_FIGURE, name, value));
}

void report_process_counts(const tw_process_list& list) {
  TW_REPORT("-> There're %u running processes:\n", list.count);
  TW_REPORT("\t KThread: %u, Native : %u, Runtime: %u\n", list.kthread_count, list.native_count,
            list.runtime_count);
  add_figure("processes", list.count);
  add_figure("kernel", list.kthread_count);
  add_figure("native", list.native_count);
  add_figure("runtime", list.runtime_count);
}

// A change may name a slot that was freed since, which must stay all zero.
void mark(tw_process_entry* entry, bool interested) {
  if (entry != nullptr && entry->pid != 0) {
    interested_proc_set(entry, interested);
  }
}

void announce_ranking(ProcessCollector* collector) {
  if (collector == nullptr) {
    return;
  }
  TW_REPORT("\n");
  TW_REPORT("%s", TW_EVENT_RULE);
  TW_REPORT("-> Update process'RSS rank of \"%s\":\n", collector->name);
  collector->sort();
  collector->dump();
  for (const auto& [newcomer, evicted] : collector->changes) {
    mark(newcomer, true);
    mark(evicted, false);
  }
  if (!draft().is_wanted()) {
    return;
  }
  uint32_t rank = 0;
  for (const tw_process_entry* member : collector->members) {
    taskwarden_event_row row = tw_process_row(TASKWARDEN_ROW_RANKED, *member);
    row.number = ++rank;
    row.is_new = collector->is_newcomer(member) ? 1 : 0;
    draft().add(row);
  }
  for (const auto& [newcomer, evicted] : collector->changes) {
    draft().add(tw_process_row(TASKWARDEN_ROW_CAME, *newcomer));
    if (evicted != nullptr) {
      draft().add(tw_process_row(TASKWARDEN_ROW_WENT, *evicted));
    }
  }
}

void report_headline(const EventFacts& facts, const tw_process_entry& entry) {
  TW_REPORT("-> %s in proc %u \"%s\": %u\n", facts.headline, entry.pid, entry.desc.name,
            static_cast<unsigned>(facts.growth.current.get(entry.desc)));
}

void send_record(const EventFacts& facts, const tw_process_entry& entry) {
  const auto value = static_cast<int64_t>(facts.growth.current.get(entry.desc));
  draft().set_record(facts.id(), tw_send_record(static_cast<int32_t>(entry.pid), value,
                                                facts.kind.name, entry.desc.name, ""));
}

// What the inventory `current` has left out, and what grew of that, where anything was.
void report_rest(const StringCounter* current, int64_t grown_others) {
  const tw_inventory_rest rest = tw_rest_of_inventory(current);
  if (rest.is_short || grown_others > 0) {
    TW_REPORT("\t and %lld under other names, which are not kept: %lld more\n",
              static_cast<long long>(rest.occurrences), static_cast<long long>(grown_others));
    add_figure("other_names", rest.occurrences);
    add_figure("other_names_increase", grown_others);
  }
}

// Compares the inventory `current` with the one kept in `field`, lists what grew, sends the record,
// and keeps `current` instead. The first inventory of an identity is only kept.
void explain_growth(const EventFacts& facts, const tw_process_entry& entry, CounterBlock current,
                    void** field, const char* heading, const char* row_format) {
  CounterBlock previous(static_cast<StringCounter*>(std::exchange(*field, nullptr)));
  const bool is_compared = previous != nullptr;
  int64_t grown_others = 0;
  draft().add_all(*current);
  if (is_compared) {
    TW_REPORT("%s", heading);
    draft().set_compared();
    StringCounter grown = tw_inventory_growth(previous.get(), current.get(), &grown_others);
    for (const auto& [name, increase] : grown) {
      TW_REPORT(row_format, name.c_str(), increase);
      taskwarden_event_row row = tw_row(TASKWARDEN_ROW_GROWN, name, current->at(name));
      row.increase = increase;
      draft().add(row);
    }
    draft().keep(std::move(grown));
    // Where the handler is registered twice, rows may point to its names as well.
    draft().keep(std::move(*previous));
    previous.reset();
  }
  report_rest(current.get(), grown_others);
  if (is_compared) {
    send_record(facts, entry);
  }
  *field = current.release();
}

void add_inventory_figures(const StringCounter& inventory, int32_t listed_above) {
  add_figure("kinds", static_cast<int64_t>(inventory.size()));
  add_figure("listed_above", listed_above);
}

void explain_threads(const EventFacts& facts, tw_process_entry& entry) {
  CounterBlock current = make_counter_block();
  if (current != nullptr) {
    tw_process_check_threads(static_cast<int>(entry.pid), current.get());
    add_inventory_figures(*current, TW_THREADS_LISTED_ABOVE);
    explain_growth(facts, entry, std::move(current), &entry.threads_counter_block,
                   "-> Here they're the newly created:\n", "\t \"%16s\" created: %d\n");
  }
}

void explain_open_files(const EventFacts& facts, tw_process_entry& entry) {
  CounterBlock current = make_counter_block();
  if (current != nullptr) {
    tw_process_check_openfiles(static_cast<int>(entry.pid), nullptr, current.get());
    add_inventory_figures(*current, TW_OPEN_FILES_LISTED_ABOVE);
    explain_growth(facts, entry, std::move(current), &entry.files_counter_block,
                   "-> Here they're the newly opened:\n", "\t \"%s\" added: %d\n");
  }
}

taskwarden_event_row division_row(int32_t kind, int i, const vma_division_t& division = {}) {
  taskwarden_event_row row = tw_row(kind, vma_division_typename(static_cast<VMA_DIVISION_TYPE>(i)),
                                    static_cast<int64_t>(division.rss_kb));
  row.number = static_cast<uint32_t>(i);
  row.areas = division.vma_count;
  return row;
}

// One line for each division that grew, and one for that which grew most: the first of several, and
// division 0 when none did.
void report_division_growth(const vma_division_t* before, const vma_division_t* now) {
  taskwarden_event_row most = division_row(TASKWARDEN_ROW_LARGEST_INCREASE, 0);
  for (int i = 0; i < VMA_DIVISION_COUNT; ++i) {
    // On the low 32 bits, as they are shown.
    const auto increase = static_cast<int32_t>(static_cast<uint32_t>(now[i].rss_kb) -
                                               static_cast<uint32_t>(before[i].rss_kb));
    if (increase < 1) {
      continue;
    }
    taskwarden_event_row row = division_row(TASKWARDEN_ROW_GROWN, i, now[i]);
    row.increase = increase;
    row.areas_increase = static_cast<int32_t>(now[i].vma_count - before[i].vma_count);
    TW_REPORT("\t #%02d: \"%10s\" eaten %8u kB in %3u areas; increased %8d kB, %d areas\n", i,
              row.name.data, static_cast<unsigned>(row.value), row.areas, increase,
              row.areas_increase);
    draft().add(row);
    if (increase > most.increase) {
      most = division_row(TASKWARDEN_ROW_LARGEST_INCREASE, i);
      most.increase = increase;
    }
  }
  TW_REPORT("\t -> THE MAX INCREASE is \"%s\" (%d)\n", most.name.data,
            static_cast<int>(most.number));
  draft().add(most);
}

void explain_resident_size(const EventFacts& facts, tw_process_entry& entry) {
  vma_division_t now[VMA_DIVISION_COUNT];
  tw_process_check_smaps(static_cast<int>(entry.pid), now);
  for (int i = 0; i < VMA_DIVISION_COUNT; ++i) {
    draft().add(division_row(TASKWARDEN_ROW_INVENTORY, i, now[i]));
  }
  auto* kept = static_cast<vma_division_t*>(entry.divisions_block);
  if (kept == nullptr) {
    entry.divisions_block = tw_allocate(sizeof(now));
    if (entry.divisions_block != nullptr) {
      memcpy(entry.divisions_block, now, sizeof(now));
    }
    return;
  }
  draft().set_compared();
  if (std::equal(std::begin(now), std::end(now), kept)) {
    return;
  }
  report_division_growth(kept, now);
  send_record(facts, entry);
  std::copy(std::begin(now), std::end(now), kept);
}

void report_slab_census() {
  constexpr int32_t kRows = 10;
  // Its names must outlive the call; nothing else uses it.
  static tw_slabinfo_t census;
  census = {};
  tw_system_check_slabinfo(&census);
  tw_slabinfo_dump(&census, kRows);
  add_figure("caches", census.count);
  add_figure("bytes", census.total_bytes);
  for (int32_t i = 0; i < std::min(census.count, kRows); ++i) {
    const tw_slab_entry_t& cache = census.entries[i];
    taskwarden_event_row row = tw_row(TASKWARDEN_ROW_CACHE, cache.name, cache.total_bytes);
    row.number = static_cast<uint32_t>(i + 1);
    row.objects = cache.active_objs;
    row.object_bytes = cache.obj_size;
    draft().add(row);
  }
}

}  // namespace

bool AuditEventHandler::onEventIncoming(AuditEvent* event) {
  const EventFacts* const facts = tw_find_event_facts(event->id);
  if (facts == nullptr || facts->source() != event->source) {
    return true;
  }
  auto* const list = static_cast<tw_process_list*>(event->data);
  auto* const entry = static_cast<tw_process_entry*>(event->data);
  if (facts->headline != nullptr) {
    report_headline(*facts, *entry);
  }
  switch (facts->reaction) {
    case Reaction::kNothing:
    case Reaction::kHeadline:
      break;
    case Reaction::kReleaseBlocks:
      tw_release_entry_blocks(entry);
      break;
    case Reaction::kThreads:
      explain_threads(*facts, *entry);
      break;
    case Reaction::kOpenFiles:
      explain_open_files(*facts, *entry);
      break;
    case Reaction::kDivisions:
      explain_resident_size(*facts, *entry);
      break;
    case Reaction::kCounts:
      report_process_counts(*list);
      break;
    case Reaction::kRuntimeRank:
      announce_ranking(list->runtime_collector);
      break;
    case Reaction::kNativeRank:
      announce_ranking(list->native_collector);
      break;
    case Reaction::kSlabCensus:
      report_slab_census();
      break;
  }
  return true;
}
