#include "support/telling.h"

#include <android-base/stringprintf.h>

#include <map>
#include <vector>

namespace {

using android::base::StringPrintf;

const std::string kRule = "\n" + std::string(55, '-') + "\n";

// The log shows counts and sizes by their low 32 bits.
uint32_t low(int64_t value) {
  return static_cast<uint32_t>(value);
}

class Telling {
 public:
  explicit Telling(const taskwarden_event& event) : event_(event), name_(event.kind->name) {
    for (size_t i = 0; i < event.row_count; ++i) {
      const auto* row = reinterpret_cast<const taskwarden_event_row*>(
          reinterpret_cast<const char*>(event.rows) + i * event.row_size);
      if (row->kind == TASKWARDEN_ROW_FIGURE) figures_[text_of(row->name)] = row->value;
      if (row->kind != TASKWARDEN_ROW_FIGURE) rows_[row->kind].push_back(row);
    }
  }

  EventTexts texts() {
    if (event_.kind->about == TASKWARDEN_ABOUT_PROCESS) return {growth(), explanation()};
    if (name_.starts_with("Event_ProcRank")) return {"", ranking()};
    return {block(measured()), name_.starts_with("Event_") ? counts() : census()};
  }

 private:
  using Rows = std::vector<const taskwarden_event_row*>;

  std::string block(const std::string& detail) {
    return kRule + name_ + "\n-> audit evnet" + detail;
  }
  std::string measured() {
    static const std::map<std::string, const char*> kLabels = {
        {"mem_free_kb", " mem-free %u,"},
        {"mem_available_kb", " mem-avail %u\n"},
        {"slab_unreclaimable_kb", " slab unreclaim %u\n"}};
    std::string all = ":";
    for (const auto* row : rows_[TASKWARDEN_ROW_MEASURED]) {
      const bool counts = text_of(row->name) == "tasks";
      all += counts ? tasks(row->value)
                    : StringPrintf(kLabels.at(text_of(row->name)), low(row->value));
    }
    return all;
  }
  std::string tasks(int64_t count) {
    static const std::map<int32_t, const char*> kKinds = {
        {256, "total"}, {257, "kernel"}, {258, "native"}, {259, "runtime"}};
    return StringPrintf(" %s tasks, %u\n", kKinds.at(event_.id), low(count));
  }
  std::string counts() {
    return StringPrintf(
        "-> There're %u running processes:\n\t KThread: %u, Native : %u, Runtime: %u\n",
        low(figures_["processes"]), low(figures_["kernel"]), low(figures_["native"]),
        low(figures_["runtime"]));
  }
  std::string census() {
    if (event_.id == 2048) return "";
    std::string all = StringPrintf("SLAB has %u entries (size>0), totally %u bytes; TOP-10:\n",
                                   low(figures_["caches"]), low(figures_["bytes"]));
    Rows caches = rows_[TASKWARDEN_ROW_CACHE];
    for (size_t i = 1; i <= 10; ++i) {
      const taskwarden_event_row none = {};
      const auto& row = i <= caches.size() ? *caches[i - 1] : none;
      all += StringPrintf("\t #%2zu %20s: %6d %6d, totalsz: %d\n", i, text_of(row.name).c_str(),
                          row.objects, row.object_bytes, static_cast<int32_t>(row.value));
    }
    return all;
  }
  std::string ranking() {
    std::string all = kRule + "-> Update process'RSS rank of \"" +
                      (event_.id == 512 ? "Runtime" : "Non-runtime") + "\":\n";
    for (const auto* row : rows_[TASKWARDEN_ROW_RANKED]) {
      all += StringPrintf("\t [%c %2u] pid %u \"%s\": RSS %u\n", row->is_new ? '*' : ' ',
                          row->number, row->pid, text_of(row->name).c_str(), low(row->value));
    }
    return all;
  }
  std::string growth() {
    static const std::map<int32_t, const char*> kWordings = {
        {1536, "RSS increasement, peak"},
        {1792, "VSS \"DALVIK\" increasement, peak"},
        {1793, "VSS \"HEAP\" increasement, peak"},
        {1794, "VSS \"ASHMEM\" increasement, peak"},
        {1795, "VSS \"KGSL\" increasement, peak"},
        {1796, "VSS \"DMABUF\" increasement, peak"},
        {1024, "running threads amount,"},
        {1280, "open files amount,"},
        {1281, "open files FDSize,"}};
    if (event_.id < 1024) return "";
    return block(StringPrintf(" by proc %u \"%s\": %s %u -> %u\n", event_.pid,
                              text_of(event_.process).c_str(), kWordings.at(event_.id),
                              low(event_.before), low(event_.after)));
  }
  std::string explanation() {
    const auto headline = [&](const char* what) {
      return StringPrintf("-> %s in proc %u \"%s\": %u\n", what, event_.pid,
                          text_of(event_.process).c_str(), low(event_.after));
    };
    switch (event_.id) {
      case 1024:
        return headline("Too many threads") +
               inventory(
                   "Dump threads' map of proc %u, %jd kinds of threads\nAnd, only the thread "
                   "which is more than %jd will be list:\n",
                   "\t \"%16s\": %jd\n", "-> Here they're the newly created:\n",
                   "\t \"%16s\" created: %jd\n");
      case 1280:
        return headline("Too many open files") +
               inventory(
                   "Dump openfiles' map of proc %u, %jd kinds of files\nAnd, only the file "
                   "opened more than %jd will be list:\n",
                   "\t \"%s\": %jd\n", "-> Here they're the newly opened:\n",
                   "\t \"%s\" added: %jd\n");
      case 1281:
        return headline("Too large \"FDSize\"");
      case 1536:
        return headline("RSS is too large") + divisions();
      default:
        return "";
    }
  }
  std::string inventory(const char* head, const char* entry, const char* heading,
                        const char* grown) {
    const Rows all = rows_[TASKWARDEN_ROW_INVENTORY];
    if (static_cast<int64_t>(all.size()) != figures_["kinds"]) return "not all kinds are told";
    std::string text = StringPrintf(head, event_.pid, figures_["kinds"], figures_["listed_above"]);
    for (const auto* row : all) {
      if (row->value > figures_["listed_above"])
        text += StringPrintf(entry, text_of(row->name).c_str(), row->value);
    }
    text += event_.is_compared ? heading : "";
    for (const auto* row : rows_[TASKWARDEN_ROW_GROWN])
      text += StringPrintf(grown, text_of(row->name).c_str(), row->increase);
    if (figures_.contains("other_names")) {
      text += StringPrintf("\t and %jd under other names, which are not kept: %jd more\n",
                           figures_["other_names"], figures_["other_names_increase"]);
    }
    return text;
  }
  std::string divisions() {
    if (rows_[TASKWARDEN_ROW_INVENTORY].size() != 18) return "not all divisions are told";
    std::string text;
    for (const auto* row : rows_[TASKWARDEN_ROW_GROWN]) {
      text += StringPrintf(
          "\t #%02u: \"%10s\" eaten %8u kB in %3u areas; increased %8jd kB, %d areas\n",
          row->number, text_of(row->name).c_str(), low(row->value), row->areas, row->increase,
          row->areas_increase);
    }
    for (const auto* row : rows_[TASKWARDEN_ROW_LARGEST_INCREASE]) {
      text += StringPrintf("\t -> THE MAX INCREASE is \"%s\" (%u)\n", text_of(row->name).c_str(),
                           row->number);
    }
    return text;
  }

  const taskwarden_event& event_;
  const std::string name_;
  std::map<std::string, int64_t> figures_;
  std::map<int32_t, Rows> rows_;
};

}  // namespace

std::string text_of(const taskwarden_bytes& bytes) {
  return bytes.length > 0 ? std::string(bytes.data, bytes.length) : "";
}

EventTexts texts_of(const taskwarden_event& event) {
  return Telling(event).texts();
}
