#include "host/explain/memory_names.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include "host/common/words.h"

namespace host {
namespace {

constexpr uint64_t kArenaSpan = 64 << 20;
constexpr uint64_t kGuardMost = 64 << 10;
constexpr std::string_view kDeleted = " (deleted)";

struct Name {
  const char* kind;
  std::string_view name;
};

// What an area with this name, which is not empty, is to people.
Name name_of(std::string_view name) {
  const bool deleted = name.ends_with(kDeleted);
  const std::string_view path = name.substr(0, name.size() - (deleted ? kDeleted.size() : 0));
  const auto after = [&](std::string_view prefix, std::string_view text) {
    return text.starts_with(prefix) ? text.substr(prefix.size()) : std::string_view();
  };
  if (name == "[heap]") {
    return {"heap", {}};
  }
  if (name.starts_with("[stack")) {
    return {"stack", {}};
  }
  for (const auto& [prefix, kind] :
       {std::pair("[anon:", "anonymous"), {"[anon_shmem:", "shared memory"}}) {
    if (const std::string_view rest = after(prefix, name); !rest.empty()) {
      return {kind, rest.substr(0, rest.rfind(']'))};
    }
  }
  if (name.starts_with("/memfd:")) {
    return {"memfd", after("/memfd:", path)};
  }
  if (name.starts_with("/SYSV")) {
    return {"shared memory", "System V"};
  }
  if (path == "/dev/zero" && deleted) {
    return {"shared memory", "without a name"};
  }
  if (path.starts_with("/dev/shm/")) {
    return {"shared memory", path};
  }
  if (path.starts_with("/anon_hugepage") || path.starts_with("/dev/hugepages")) {
    return {"huge pages", path};
  }
  if (path.starts_with("/dev/")) {
    return {"device", path};
  }
  if (!path.starts_with('/')) {
    return {"kernel", path};
  }
  const std::string_view file = path.substr(path.rfind('/'));
  const size_t so = file.find(".so");
  const bool library = so != file.npos && (so + 3 == file.size() || file[so + 3] == '.');
  return {deleted ? "deleted file" : library ? "library" : "file", path};
}

}  // namespace

bool MemoryNames::parse(std::string_view line, Area* area) {
  const char* const end = line.data() + line.size();
  const auto first = std::from_chars(line.data(), end, area->start, 16);
  if (first.ec != std::errc() || first.ptr == end || *first.ptr != '-') {
    return false;
  }
  const auto last = std::from_chars(first.ptr + 1, end, area->end, 16);
  if (last.ec != std::errc() || last.ptr == end || *last.ptr != ' ' || area->end < area->start) {
    return false;
  }
  std::string_view rest(last.ptr, static_cast<size_t>(end - last.ptr));
  area->rights = take_word(&rest);
  for (int i = 0; i < 3; ++i) {  // offset, device, inode
    take_word(&rest);
  }
  rest.remove_prefix(std::min(rest.find_first_not_of(' '), rest.size()));
  area->name = rest;
  return area->rights.size() == 4;
}

Holding MemoryNames::held(const char* kind, std::string_view name, const Area& area) {
  Holding held{.kind = kind, .name = std::string(name)};
  held.amount = sum_of(area.resident_kb, area.swapped_kb);
  held.swapped_kb = area.swapped_kb;
  held.areas = 1;
  held.largest_kb = held.amount;
  return held;
}

// Enters the area that waited for what lies behind it.
void MemoryNames::settle(bool is_arena) {
  if (is_waiting_) {
    tally_.add(held(is_arena ? "malloc arenas" : "anonymous", {}, waiting_));
  }
  is_waiting_ = false;
}

void MemoryNames::end_area() {
  if (!open_) {
    return;
  }
  open_ = false;
  const bool is_empty = area_.resident_kb + area_.swapped_kb == 0;
  if (is_waiting_ && area_.start == waiting_.end && area_.rights.starts_with("---")) {
    settle(area_.end % kArenaSpan == 0 && area_.end - waiting_.start == kArenaSpan);
  }
  settle(false);
  if (is_empty) {
    return;
  }
  if (!area_.name.empty()) {
    const Name named = name_of(area_.name);
    tally_.add(held(named.kind, named.name, area_));
  } else if (area_.is_plain() && area_.start % kArenaSpan == 0 &&
             area_.end - area_.start <= kArenaSpan) {
    waiting_ = area_;
    is_waiting_ = area_.end - area_.start < kArenaSpan;
    if (!is_waiting_) {
      tally_.add(held("malloc arenas", {}, area_));
    }
  } else if (area_.is_plain() && area_.above_guard) {
    merge(held("thread stacks", {}, area_), area_.is_marked ? &marked_ : &unmarked_);
  } else {
    tally_.add(held("anonymous", {}, area_));
  }
}

void MemoryNames::take(std::string_view line) {
  if (line.ends_with('\n')) {
    line.remove_suffix(1);
  }
  Area next;
  if (parse(line, &next)) {
    const bool above = open_ && area_.end == next.start && area_.name.empty() &&
                       area_.rights.starts_with("---") && area_.end - area_.start <= kGuardMost;
    end_area();
    area_ = std::move(next);
    area_.above_guard = above;
    open_ = true;
    return;
  }
  if (!open_) {
    return;
  }
  const size_t colon = std::min(line.find(':'), line.size());
  const std::string_view key = line.substr(0, colon);
  std::string_view value = line.substr(std::min(colon + 1, line.size()));
  if (key == "Rss" || key == "Private_Hugetlb" || key == "Shared_Hugetlb") {
    area_.resident_kb = sum_of(area_.resident_kb, take_amount(&value));
  } else if (key == "Swap") {
    area_.swapped_kb = sum_of(area_.swapped_kb, take_amount(&value));
  } else if (key == "VmFlags") {
    while (!value.empty()) {
      area_.is_marked |= take_word(&value) == "nh";
    }
  }
}

Holdings MemoryNames::ranked() {
  end_area();
  settle(false);
  Tally all = tally_;
  if (marked_.areas != 0) {
    unmarked_.kind = "anonymous";
  }
  for (const Holding& stacks : {marked_, unmarked_}) {
    if (stacks.areas != 0) {
      all.add(stacks);
    }
  }
  return all.ranked();
}

}  // namespace host
