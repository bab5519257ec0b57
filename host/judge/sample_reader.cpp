#include "host/judge/sample_reader.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <string_view>

#include "host/common/escape.h"

namespace host {
namespace {

// The columns in the order of SampleReader::place_. All but time, pid and name are plain numbers.
enum Column { kTime, kPid, kName, kNumbers };
struct Number {
  std::string_view name;
  int64_t judge::Sample::*field;
  bool required;
};
constexpr std::string_view kOthers[] = {"time", "pid", "name"};
constexpr Number kNumber[] = {
    {"start", &judge::Sample::start, true},
    {"resident_kb", &judge::Sample::resident_kb, true},
    {"threads", &judge::Sample::threads, true},
    {"open_files", &judge::Sample::open_files, true},
    {"open_files_limit", &judge::Sample::open_files_limit, false},
    {"threads_limit", &judge::Sample::threads_limit, false},
    {"memory_limit_kb", &judge::Sample::memory_limit_kb, false},
    {"memory_available_kb", &judge::Sample::memory_available_kb, false},
    {"swap_kb", &judge::Sample::swap_kb, false},
};

std::string_view column_name(size_t column) {
  return column < kNumbers ? kOthers[column] : kNumber[column - kNumbers].name;
}

// The whole of `text` as a number; a fraction is cut off.
bool parse(std::string_view text, int64_t* number) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, *number);
  if (rest == end && error == std::errc()) {
    return *number >= 0;
  }
  double value = 0;
  const auto parsed = std::from_chars(text.data(), end, value);
  if (parsed.ptr != end || parsed.ec != std::errc() || !(value >= 0 && value < 0x1p62)) {
    return false;
  }
  *number = static_cast<int64_t>(value);
  return true;
}

bool parse(std::string_view text, double* number) {
  const char* const end = text.data() + text.size();
  const auto [rest, error] = std::from_chars(text.data(), end, *number);
  return rest == end && error == std::errc() && std::isfinite(*number);
}

std::string shown(std::string_view cell) {
  return "\"" + escape_text(cell.substr(0, 40)) + (cell.size() > 40 ? "...\"" : "\"");
}

}  // namespace

bool SampleReader::begin() {
  static_assert(kColumns == kNumbers + std::size(kNumber));
  if (!rows_.next()) {
    problem_ = "there is no header";
    return false;
  }
  if (rows_.error() != nullptr) {
    problem_ = rows_.error();
    return false;
  }
  std::vector<std::string_view> names = rows_.cells();
  if (names[0].starts_with("\xEF\xBB\xBF")) {  // a byte order mark
    names[0].remove_prefix(3);
  }
  width_ = names.size();
  for (size_t i = 0; i < kColumns; ++i) {
    const std::string_view name = column_name(i);
    const auto found = std::find(names.begin(), names.end(), name);
    place_[i] = found != names.end() ? static_cast<size_t>(found - names.begin()) : SIZE_MAX;
    const bool required = i < kNumbers || kNumber[i - kNumbers].required;
    if (found == names.end() ? required : std::find(found + 1, names.end(), name) != names.end()) {
      problem_ = (found == names.end() ? "there is no column " : "there are two columns ");
      problem_ += name;
      return false;
    }
  }
  return true;
}

bool SampleReader::next(judge::Sample* sample) {
  problem_.clear();
  if (!rows_.next()) {
    return false;
  }
  *sample = judge::Sample{};
  if (rows_.error() != nullptr) {
    problem_ = rows_.error();
  } else if (rows_.cells().size() != width_) {
    problem_ =
        "it has " + std::to_string(rows_.cells().size()) + " cells, not " + std::to_string(width_);
  } else if (read(sample)) {
    last_time_ = sample->time;
    any_ = true;
  }
  return true;
}

// Takes the cells; false, with the problem, where one is not what it should be.
bool SampleReader::read(judge::Sample* sample) {
  const auto& cells = rows_.cells();
  const auto refuse = [&](size_t column, const char* what) {
    problem_ =
        std::string(column_name(column)) + " is " + what + ": " + shown(cells[place_[column]]);
    return false;
  };
  if (!parse(cells[place_[kTime]], &sample->time)) {
    return refuse(kTime, "not a number");
  }
  if (any_ && sample->time < last_time_) {
    return refuse(kTime, "earlier than in the row before");
  }
  int64_t pid = 0;
  if (!parse(cells[place_[kPid]], &pid) || pid < 1 || pid > INT32_MAX) {
    return refuse(kPid, "not a process id");
  }
  sample->pid = static_cast<int32_t>(pid);
  sample->name = cells[place_[kName]];
  for (size_t i = 0; i < std::size(kNumber); ++i) {
    const size_t place = place_[kNumbers + i];
    if (place != SIZE_MAX && !cells[place].empty() &&
        !parse(cells[place], &(sample->*kNumber[i].field))) {
      return refuse(kNumbers + i, "not a number from 0 on");
    }
  }
  return true;
}

}  // namespace host
