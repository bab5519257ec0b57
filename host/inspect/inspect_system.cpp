#include "host/inspect/inspect_system.h"

#include <errno.h>
#include <stdlib.h>
#include <string.h>

#include <algorithm>
#include <cstdint>
#include <string_view>
#include <utility>

#include "host/common/file_text.h"
#include "host/inspect/reader_output.h"
#include "inspect/system/meminfo.h"
#include "inspect/system/slabinfo.h"

namespace host {
namespace {

constexpr struct {
  const char* key;
  std::string_view line;  // how its line begins
  int32_t tw_meminfo_t::*field;
} kFigures[] = {
    {"mem_total_kb", "MemTotal:", &tw_meminfo_t::mem_total_kb},
    {"mem_free_kb", "MemFree:", &tw_meminfo_t::mem_free_kb},
    {"mem_available_kb", "MemAvailable:", &tw_meminfo_t::mem_available_kb},
    {"sunreclaim_kb", "SUnreclaim:", &tw_meminfo_t::sunreclaim_kb},
};

uint64_t exact_bytes(const tw_slab_entry_t& cache) {
  return uint64_t{static_cast<uint32_t>(cache.active_objs)} * static_cast<uint32_t>(cache.obj_size);
}

bool is_larger(const tw_slab_entry_t& a, const tw_slab_entry_t& b) {
  const uint64_t a_bytes = exact_bytes(a);
  const uint64_t b_bytes = exact_bytes(b);
  return a_bytes != b_bytes ? a_bytes > b_bytes : ::strcmp(a.name, b.name) < 0;
}

}  // namespace

Document inspect_slabs(int top, const std::string& root) {
  Document document;
  ReaderOutput output;
  tw_slabinfo_t census = {};
  const int error = read_file(root + "/slabinfo", 1).error;
  if (error == 0) {
    tw_system_check_slabinfo(&census);
  }
  std::string why = error != 0 ? ::strerror(error) : output.failure();
  why += error == EACCES ? " (it is for root only)" : "";
  std::sort(census.entries, census.entries + census.count, is_larger);
  uint64_t total_bytes = 0;
  Json list = Json::array();
  for (int32_t i = 0; i < census.count; ++i) {
    const tw_slab_entry_t& cache = census.entries[i];
    total_bytes += exact_bytes(cache);
    if (i < top) {
      list.push_back({{"total_bytes", exact_bytes(cache)},
                      {"live_objects", static_cast<uint32_t>(cache.active_objs)},
                      {"object_bytes", cache.obj_size},
                      {"name", cache.name}});
    }
  }
  // With a full table, what was counted stands.
  document.set("count", census.count, census.count == 0 ? why : "");
  document.set("total_bytes", total_bytes, census.count == 0 ? why : "");
  document.set("caches", std::move(list), why);
  return document;
}

Document inspect_meminfo(const std::string& root) {
  Document document;
  ReaderOutput output;
  tw_meminfo_t meminfo = {};
  const FileText file = read_file(root + "/meminfo");
  if (file.error == 0) {
    tw_system_check_meminfo(&meminfo);
  }
  const std::string failure = file.error != 0 ? ::strerror(file.error) : output.failure();
  const std::string text = "\n" + file.text;
  for (const auto& [key, line, field] : kFigures) {
    const size_t at = text.find("\n" + std::string(line));
    // The reader leaves 0 where it did not come to the line.
    std::string why = meminfo.*field == 0 ? failure : "";
    if (why.empty() && at == std::string::npos) {
      why = "not in the file";
    } else if (why.empty() &&
               ::strtoull(text.c_str() + at + 1 + line.size(), nullptr, 10) > INT32_MAX) {
      why = "2 TiB or more";
    }
    document.set(key, meminfo.*field, why);
  }
  return document;
}

}  // namespace host
