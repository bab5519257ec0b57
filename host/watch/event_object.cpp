#include "host/watch/event_object.h"

#include <chrono>
#include <cstddef>
#include <string>
#include <string_view>
#include <utility>

#include "host/common/event_kinds.h"
#include "host/common/time_words.h"

namespace host {
namespace {

std::string text_of(const taskwarden_bytes& bytes) {
  return bytes.length == 0 ? std::string() : std::string(bytes.data, bytes.length);
}

// The arrays of an inventory, by the unit of what is counted.
struct Inventory {
  std::string_view unit;
  const char* listed;
  const char* grown;
};
constexpr Inventory kThreads{"threads", "threads", "created"};
constexpr Inventory kFiles{"files", "files", "opened"};

void set_start(uint64_t start_time, Json* object) {
  if (start_time != 0) {
    (*object)["start"] = start_time;
  }
}

Json division(const taskwarden_event_row& row) {
  return {{"number", row.number},        {"division", text_of(row.name)},
          {"resident_kb", row.value},    {"areas", row.areas},
          {"increase_kb", row.increase}, {"increase_areas", row.areas_increase}};
}

Json member(const taskwarden_event_row& row) {
  Json object = {{"rank", row.number}, {"pid", row.pid}, {"name", text_of(row.name)}};
  set_start(row.start_time, &object);
  object["resident_kb"] = row.value;
  if (row.is_new != 0) {
    object["newcomer"] = true;
  }
  return object;
}

Json cache(const taskwarden_event_row& row) {
  return {{"cache", text_of(row.name)},
          {"objects", row.objects},
          {"object_bytes", row.object_bytes},
          {"bytes", row.value}};
}

// Adds a row to the list `key`, or counts it where there are enough.
void add_row(const char* key, Json row, Json* explanation) {
  if (Json& list = (*explanation)[key]; list.size() < kMostRows) {
    list.push_back(std::move(row));
  } else {
    (*explanation)["more_rows"] = explanation->value("more_rows", 0) + 1;
  }
}

// Adds what `row` says to the explanation. `inventory` is null where memory is measured.
void explain(const taskwarden_event_row& row, const Inventory* inventory, Json* explanation) {
  const std::string name = text_of(row.name);
  switch (row.kind) {
    case TASKWARDEN_ROW_FIGURE:
      (*explanation)[name] = row.value;
      break;
    case TASKWARDEN_ROW_INVENTORY:
      if (inventory != nullptr && row.value > explanation->value("listed_above", INT64_MAX)) {
        add_row(inventory->listed, {{"name", name}, {"count", row.value}}, explanation);
      }
      break;
    case TASKWARDEN_ROW_GROWN:
      if (inventory != nullptr) {
        add_row(inventory->grown, {{"name", name}, {"increase", row.increase}}, explanation);
      } else {
        add_row("divisions", division(row), explanation);
      }
      break;
    case TASKWARDEN_ROW_LARGEST_INCREASE:
      (*explanation)["largest_increase"] = name;
      (*explanation)["largest_increase_number"] = row.number;
      break;
    case TASKWARDEN_ROW_RANKED:
      add_row("ranking", member(row), explanation);
      break;
    case TASKWARDEN_ROW_CACHE:
      add_row("largest", cache(row), explanation);
      break;
    default:
      break;
  }
}

const taskwarden_event_row& row_at(const taskwarden_event& event, size_t index) {
  const auto* const rows = reinterpret_cast<const char*>(event.rows);
  return *reinterpret_cast<const taskwarden_event_row*>(rows + index * event.row_size);
}

}  // namespace

Json event_object(const taskwarden_event& event) {
  if (event.kind == nullptr || !is_logged(*event.kind)) {
    return {};
  }
  using std::chrono::system_clock;
  const system_clock::time_point time{std::chrono::milliseconds(event.time_ms)};
  Json object = {{"time", iso_time(time)}, {"event", event.kind->name}};
  if (event.kind->about == TASKWARDEN_ABOUT_PROCESS) {
    object["pid"] = event.pid;
    object["name"] = text_of(event.process);
    set_start(event.start_time, &object);
    object["before"] = event.before;
    object["after"] = event.after;
  }
  const Inventory* inventory = nullptr;
  for (const Inventory* known : {&kThreads, &kFiles}) {
    inventory = event.kind->unit == known->unit ? known : inventory;
  }
  Json explanation;
  for (size_t i = 0; i < event.row_count; ++i) {
    const taskwarden_event_row& row = row_at(event, i);
    if (row.kind == TASKWARDEN_ROW_MEASURED) {
      object[text_of(row.name)] = row.value;
      continue;
    }
    if (explanation.is_null()) {
      explanation = Json::object();
    }
    explain(row, inventory, &explanation);
  }
  if (inventory != nullptr && event.is_compared != 0 && !explanation.contains(inventory->grown)) {
    explanation[inventory->grown] = Json::array();
  }
  if (!explanation.is_null()) {
    object["explanation"] = explanation;
  }
  return object;
}

}  // namespace host
