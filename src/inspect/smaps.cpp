#include "inspect/smaps.h"

#include <stdlib.h>

#include <algorithm>

#include "inspect/key_table.h"
#include "inspect/maps_parse.h"
#include "inspect/start_time.h"
#include "inspect/vma_desc.h"
#include "platform/proc_root.h"
#include "platform/progress.h"
#include "report/log.h"
#include "report/reporter.h"

namespace {

enum class Key { kSize, kPss, kRss, kVmFlags };

struct SmapsKey {
  std::string_view prefix;
  Key key;
};

constexpr SmapsKey kKeys[] = {
    {"Size:", Key::kSize}, {"Pss:", Key::kPss}, {"Rss:", Key::kRss}, {"VmFlags:", Key::kVmFlags}};
constexpr KeyTable kSmapsLines(kKeys);

// Takes the lines one by one; false ends the reading.
class SmapsParser {
 public:
  SmapsParser(int pid, vma_division_t* divisions)
      : pid_(static_cast<unsigned>(pid)), divisions_(divisions) {}

  // The last line of `lines`, which is `line`.
  bool take(std::string_view line, LineReader& lines) {
    if (!in_area_) {
      return take_header(line, lines);
    }
    const SmapsKey* const known = kSmapsLines.find(line);
    return known == nullptr || take_value(*known, lines);
  }
  bool in_area() const { return in_area_; }
  uint64_t rss_sum_kb() const { return rss_sum_kb_; }

 private:
  bool take_header(std::string_view line, LineReader& lines) {
    const int conversions = parse_vma(line, &vma_);
    if (!is_vma_header(conversions)) {
      TW_LOG(TW_TAG_STATS, "-> failed to parse \"%s\" of proc %u as a vma's beginning: %d\n",
             lines.c_str(), pid_, conversions);
      return false;
    }
    in_area_ = true;
    return true;
  }

  bool take_value(const SmapsKey& known, LineReader& lines) {
    const char* const text = value_of(lines);
    if (text == nullptr) {
      TW_LOG(TW_TAG_STATS, ">> failed to get proc %u smaps's %.*s!!\n", pid_,
             static_cast<int>(known.prefix.size() - 1), known.prefix.data());
      return false;
    }
    const int64_t value = atoi(text);
    switch (known.key) {
      case Key::kSize:
        return is_consistent(lines.c_str(), value);
      case Key::kPss:
        vma_.pss_kb = value;
        break;
      case Key::kRss:
        vma_.rss_kb = value;
        rss_sum_kb_ += static_cast<uint64_t>(value);
        break;
      case Key::kVmFlags:
        account();
        break;
    }
    return true;
  }

  bool is_consistent(const char* line, int64_t value) const {
    if (value == static_cast<int64_t>(vma_.size_kb)) {
      return true;
    }
    TW_LOG(TW_TAG_STATS, ">> inconsistent Size of \"%s\" in proc %u: x%x, !=x%x\n", line, pid_,
           static_cast<unsigned>(value), static_cast<unsigned>(vma_.size_kb));
    return false;
  }

  void account() {
    vma_division_t* division = match_vma_division(divisions_, vma_);
    division->vss_kb += vma_.size_kb;
    division->rss_kb += static_cast<uint64_t>(vma_.rss_kb);
    division->pss_kb += static_cast<uint64_t>(vma_.pss_kb);
    ++division->vma_count;
    in_area_ = false;
  }

  const unsigned pid_;
  vma_division_t* const divisions_;
  vma_desc_t vma_ = {};
  bool in_area_ = false;
  uint64_t rss_sum_kb_ = 0;
};

}  // namespace

uint64_t tw_smaps_parse(int pid, LineReader& lines, vma_division_t* divisions) {
  SmapsParser parser(pid, divisions);
  for (std::string_view line; !(line = lines.next()).empty();) {
    if (!parser.take(line, lines)) {
      return parser.rss_sum_kb();
    }
  }
  if (parser.in_area()) {
    TW_LOG(TW_TAG_STATS, "-> proc %u's smaps has a bad tail: \"%s\"\n", static_cast<unsigned>(pid),
           lines.c_str());
  }
  return parser.rss_sum_kb();
}

uint64_t tw_process_check_smaps(int pid, vma_division_t* divisions) {
  const auto asked = static_cast<unsigned>(pid);
  std::fill_n(divisions, VMA_DIVISION_COUNT, vma_division_t{});
  if (tw_is_spared(asked, tw_read_start_time)) {
    return 0;
  }
  const ReadingMark mark(TASKWARDEN_READS_SMAPS, asked);
  LineReader lines = LineReader::open(ProcPath(asked, "/smaps").c_str(), LineReader::kMostOfAreas);
  if (!lines.ok()) {
    TW_LOG(TW_TAG_STATS, ">> failed to open proc %u's smaps!!\n", asked);
    return 0;
  }
  return tw_smaps_parse(pid, lines, divisions);
}

void tw_process_smaps_dump(int pid) {
  vma_division_t divisions[VMA_DIVISION_COUNT];
  tw_process_check_smaps(pid, divisions);
  TW_REPORT("Process %u summary of smaps:\n", static_cast<unsigned>(pid));
  for (int i = 0; i < VMA_DIVISION_COUNT; ++i) {
    const vma_division_t& division = divisions[i];
    TW_REPORT("\t %15s: VSS %8u, RSS %6u, PSS %6u, %4u VMAs\n",
              vma_division_typename(static_cast<VMA_DIVISION_TYPE>(i)),
              static_cast<unsigned>(division.vss_kb), static_cast<unsigned>(division.rss_kb),
              static_cast<unsigned>(division.pss_kb), division.vma_count);
  }
}
