#include "host/log_parser.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <utility>

#include "host/text_pattern.h"

namespace host {
namespace {

using Json = LogParser::Json;

constexpr std::string_view kRule = "-------------------------------------------------------\n";

// The texts of an event, as patterns. `keys` name the fields of the detail line, separated by
// commas; rankings have no name line, and their headline is their detail line.
struct Shape {
  std::string_view event;
  std::string_view detail;
  std::string_view keys;
  std::string_view headline;  // begins the explanation; empty where there is none
  std::string_view headline_keys;
  bool has_rows;
};

#define BY_PROCESS "-> audit evnet by proc %d \"%s\": "
#define RANK_HEADLINE(name) "-> Update process'RSS rank of \"" name "\":\n"

constexpr std::string_view kGrowth = "pid,name,before,after";
constexpr std::string_view kTasks = "-> There're %d running processes:\n";

constexpr Shape kShapes[] = {
    {"Event_ResidentSize", BY_PROCESS "RSS increasement, peak %d -> %d\n", kGrowth,
     "-> RSS is too large in proc %d \"%s\": %d\n", ",,", true},
    {"Event_VssHeap", BY_PROCESS "VSS \"HEAP\" increasement, peak %d -> %d\n", kGrowth, "", "",
     false},
    {"Event_VssDalvik", BY_PROCESS "VSS \"DALVIK\" increasement, peak %d -> %d\n", kGrowth, "", "",
     false},
    {"Event_VssAshmem", BY_PROCESS "VSS \"ASHMEM\" increasement, peak %d -> %d\n", kGrowth, "", "",
     false},
    {"Event_VssKgsl", BY_PROCESS "VSS \"KGSL\" increasement, peak %d -> %d\n", kGrowth, "", "",
     false},
    {"Event_VssDmaBuf", BY_PROCESS "VSS \"DMABUF\" increasement, peak %d -> %d\n", kGrowth, "", "",
     false},
    {"Event_ThreadAmount", BY_PROCESS "running threads amount, %d -> %d\n", kGrowth,
     "-> Too many threads in proc %d \"%s\": %d\n", ",,", true},
    {"Event_OpenFileAmount", BY_PROCESS "open files amount, %d -> %d\n", kGrowth,
     "-> Too many open files in proc %d \"%s\": %d\n", ",,", true},
    {"Event_OpenFileFDSize", BY_PROCESS "open files FDSize, %d -> %d\n", kGrowth,
     "-> Too large \"FDSize\" in proc %d \"%s\": %d\n", ",,", false},
    {"Event_ProcRuntimeAmount", "-> audit evnet: runtime tasks, %d\n", "tasks", kTasks, "processes",
     true},
    {"Event_ProcNativeAmount", "-> audit evnet: native tasks, %d\n", "tasks", kTasks, "processes",
     true},
    {"Event_ProcKthreadAmount", "-> audit evnet: kernel tasks, %d\n", "tasks", kTasks, "processes",
     true},
    {"Event_ProcTotalAmount", "-> audit evnet: total tasks, %d\n", "tasks", kTasks, "processes",
     true},
    {"AuditEvent_LowOnMemory", "-> audit evnet: mem-free %d, mem-avail %d\n",
     "mem_free_kb,mem_available_kb", "", "", false},
    {"AuditEvent_SlabUnreclaimSize", "-> audit evnet: slab unreclaim %d\n", "slab_unreclaimable_kb",
     "SLAB has %d entries (size>0), totally %d bytes; TOP-%d:\n", "caches,bytes,", true},
    {"Event_ProcRankRuntime", RANK_HEADLINE("Runtime"), "", "", "", true},
    {"Event_ProcRankNative", RANK_HEADLINE("Non-runtime"), "", "", "", true},
};

#undef BY_PROCESS
#undef RANK_HEADLINE

// A row of the explanations of those events whose name begins with `events`; it becomes an object
// in the array `list`, or, where that is empty, members of the explanation. A row without keys
// begins its list.
struct Row {
  std::string_view events;
  std::string_view pattern;
  std::string_view list;
  std::string_view keys;
  bool last = false;           // nothing follows it
  std::string_view mark = {};  // a member to set to true
};

constexpr std::string_view kRanked = "rank,pid,name,resident_kb";

constexpr Row kRows[] = {
    {"Event_ResidentSize", "\t #%d: \"%10s\" eaten %d kB in %d areas; increased %d kB, %d areas\n",
     "divisions", "number,division,resident_kb,areas,increase_kb,increase_areas"},
    {"Event_ResidentSize", "\t -> THE MAX INCREASE is \"%s\" (%d)\n", "",
     "largest_increase,largest_increase_number", true},
    {"Event_ThreadAmount", "Dump threads' map of proc %d, %d kinds of threads\n", "", ",kinds"},
    {"Event_ThreadAmount", "And, only the thread which is more than %d will be list:\n", "",
     "listed_above"},
    {"Event_ThreadAmount", "-> Here they're the newly created:\n", "created", ""},
    {"Event_ThreadAmount", "\t \"%16s\" created: %d\n", "created", "name,increase"},
    {"Event_ThreadAmount", "\t \"%16s\": %d\n", "threads", "name,count"},
    {"Event_OpenFileAmount", "Dump openfiles' map of proc %d, %d kinds of files\n", "", ",kinds"},
    {"Event_OpenFileAmount", "And, only the file opened more than %d will be list:\n", "",
     "listed_above"},
    {"Event_OpenFileAmount", "-> Here they're the newly opened:\n", "opened", ""},
    {"Event_OpenFileAmount", "\t \"%s\" added: %d\n", "opened", "name,increase"},
    {"Event_OpenFileAmount", "\t \"%s\": %d\n", "files", "name,count"},
    {"Event_Proc", "\t KThread: %d, Native : %d, Runtime: %d\n", "", "kernel,native,runtime", true},
    {"Event_ProcRank", "\t [* %d] pid %d \"%s\": RSS %d\n", "ranking", kRanked, false, "newcomer"},
    {"Event_ProcRank", "\t [ %d] pid %d \"%s\": RSS %d\n", "ranking", kRanked},
    {"AuditEvent_Slab", "\t #%d %20s: %d %d, totalsz: %d\n", "largest",
     ",cache,objects,object_bytes,bytes"},
};

// Adds `fields` to `*object` by their `keys`; those with an empty key are left out.
void set_members(std::string_view keys, const std::vector<Json>& fields, Json* object) {
  for (const Json& field : fields) {
    const std::string_view key = keys.substr(0, keys.find(','));
    keys.remove_prefix(std::min(keys.size(), key.size() + 1));
    if (!key.empty()) {
      (*object)[std::string(key)] = field;
    }
  }
}

// The entry of kShapes whose head says `text`; kShapes' size if there is none.
size_t find_shape(std::string_view text, std::string_view Shape::*said) {
  return static_cast<size_t>(std::find_if(std::begin(kShapes), std::end(kShapes),
                                          [&](const Shape& shape) { return shape.*said == text; }) -
                             std::begin(kShapes));
}

Json text_object(std::string_view text, const std::string& time) {
  text.remove_suffix(text.ends_with('\n') ? 1 : 0);
  return {{"time", time}, {"text", std::string(text)}};
}

// Written by whoever asks for a pause, in the midst of anything.
bool is_request(std::string_view text) {
  return text == "-> pause taskwarden\n" || text == "-> resume taskwarden\n";
}

}  // namespace

std::vector<Json> LogParser::take(std::string_view text, const std::string& time) {
  std::vector<Json> done;
  if (is_request(text)) {
    done.push_back(text_object(text, time));
  } else if (!take_head(text, time, &done) && !take_row(text) && !take_headline(text)) {
    done = flush();
    done.push_back(text_object(text, time));
  }
  release(&done);
  return done;
}

std::vector<Json> LogParser::flush() {
  std::vector<Json> done;
  for (Pending& pending : pending_) {
    pending.complete = true;
  }
  release(&done);
  return done;
}

bool LogParser::take_head(std::string_view text, const std::string& time, std::vector<Json>* done) {
  const Head head = std::exchange(head_, Head::kNone);
  if (text == "\n") {
    head_ = Head::kBlank;
    // What has begun to be explained was raised by a poll that is over.
    if (explaining_ != kNobody) {
      *done = flush();
    }
    return true;
  }
  if (head == Head::kBlank && text == kRule) {
    head_ = Head::kRule;
    return true;
  }
  if (head == Head::kRule) {
    named_ = find_shape(text.substr(0, text.size() - 1), &Shape::event);
    if (named_ != std::size(kShapes)) {
      head_ = Head::kName;
      return true;
    }
    named_ = find_shape(text, &Shape::detail);
  }
  std::vector<Json> fields;
  if ((head != Head::kRule && head != Head::kName) || named_ == std::size(kShapes) ||
      !match_pattern(text, kShapes[named_].detail, &fields)) {
    return false;
  }
  const Shape& shape = kShapes[named_];
  Pending raised{named_, {{"time", time}, {"event", shape.event}}};
  set_members(shape.keys, fields, &raised.object);
  const bool is_ranking = head == Head::kRule;
  raised.complete = shape.headline.empty() && !is_ranking;
  pending_.push_back(std::move(raised));
  if (is_ranking) {
    explaining_ = pending_.size() - 1;
  }
  return true;
}

// Explanations come in the order of the events.
bool LogParser::take_headline(std::string_view text) {
  for (size_t i = 0; i < pending_.size(); ++i) {
    Pending& pending = pending_[i];
    const Shape& shape = kShapes[pending.shape];
    std::vector<Json> fields;
    if (pending.explained || pending.complete || !match_pattern(text, shape.headline, &fields)) {
      continue;
    }
    if (explaining_ != kNobody) {
      pending_[explaining_].complete = true;
    }
    explaining_ = i;
    pending.explained = true;
    pending.complete = !shape.has_rows;
    if (shape.has_rows) {
      pending.object["explanation"] = Json::object();
      set_members(shape.headline_keys, fields, &pending.object["explanation"]);
    }
    return true;
  }
  return false;
}

bool LogParser::take_row(std::string_view text) {
  if (explaining_ == kNobody) {
    return false;
  }
  Pending& pending = pending_[explaining_];
  for (const Row& row : kRows) {
    std::vector<Json> fields;
    if (!kShapes[pending.shape].event.starts_with(row.events) ||
        !match_pattern(text, row.pattern, &fields)) {
      continue;
    }
    Json& explanation = pending.object["explanation"];
    if (row.list.empty()) {
      set_members(row.keys, fields, &explanation);
    } else if (row.keys.empty()) {
      explanation[std::string(row.list)] = Json::array();
    } else {
      Json& entry = explanation[std::string(row.list)].emplace_back(Json::object());
      set_members(row.keys, fields, &entry);
      if (!row.mark.empty()) {
        entry[std::string(row.mark)] = true;
      }
    }
    pending.complete = row.last;
    return true;
  }
  return false;
}

// Gives out the complete objects that no incomplete one stands before.
void LogParser::release(std::vector<Json>* done) {
  const auto end = std::find_if(pending_.begin(), pending_.end(),
                                [](const Pending& pending) { return !pending.complete; });
  const auto count = static_cast<size_t>(end - pending_.begin());
  std::transform(pending_.begin(), end, std::back_inserter(*done),
                 [](Pending& pending) { return std::move(pending.object); });
  pending_.erase(pending_.begin(), end);
  if (explaining_ != kNobody) {
    explaining_ = explaining_ < count ? kNobody : explaining_ - count;
  }
}

}  // namespace host
