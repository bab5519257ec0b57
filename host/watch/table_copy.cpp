#include "host/watch/table_copy.h"

#include <time.h>

#include <algorithm>

#include "host/watch/process_identity.h"

namespace host {
namespace {

// For a small machine; more when it is needed.
constexpr size_t kProcesses = 512;
constexpr size_t kNameBytes = 16;  // a process

SampledProcess sampled(const taskwarden_process& process) {
  const auto knows = [&process](uint32_t bit) { return (process.known & bit) != 0; };
  SampledProcess row;
  row.pid = static_cast<int32_t>(process.pid);
  if (knows(TASKWARDEN_KNOWN_THREADS)) {
    row.threads = process.threads;
  }
  if (knows(TASKWARDEN_KNOWN_OPEN_FILES)) {
    row.open_files = process.open_files;
  }
  if (knows(TASKWARDEN_KNOWN_RESIDENT)) {
    row.resident_kb = static_cast<int64_t>(process.resident_kb);
  }
  if (knows(TASKWARDEN_KNOWN_START_TIME)) {
    row.start = static_cast<int64_t>(process.start_time);
  }
  return row;
}

}  // namespace

double seconds_after_boot() {
  timespec now = {};
  ::clock_gettime(CLOCK_BOOTTIME, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) * 1e-9;
}

TableCopy::TableCopy(std::chrono::milliseconds interval)
    : interval_(std::chrono::duration<double>(interval).count()) {
  pass_.rows.reserve(kProcesses);
  pass_.names.reserve(kProcesses * kNameBytes);
}

void TableCopy::offer(const taskwarden_table* table) {
  if (full_.load(std::memory_order_acquire)) {
    return;
  }
  const double now = seconds_after_boot();
  if (now - last_ < interval_) {
    return;
  }
  last_ = now;
  pass_.time = now;
  copy(table);
  full_.store(true, std::memory_order_release);
  full_.notify_one();
}

void TableCopy::copy(const taskwarden_table* table) {
  pass_.processes = table->processes;
  pass_.duration_ms = table->duration_ms;
  pass_.slices = table->slice;
  pass_.pass = table->pass;
  pass_.whole = true;
  pass_.rows.clear();
  pass_.names.clear();
  taskwarden_process process = {};
  process.size = sizeof(process);
  while (taskwarden_next_process(table, &process) == 1) {
    if (process.is_kernel_task != 0) {
      continue;
    }
    const bool is_known = (process.known & TASKWARDEN_KNOWN_NAME) != 0;
    const std::string_view name =
        is_known ? without_pid({process.name.data, process.name.length}, process.pid)
                 : std::string_view();
    if (pass_.rows.size() == pass_.rows.capacity() ||
        pass_.names.size() + name.size() > pass_.names.capacity()) {
      pass_.whole = false;
      return;
    }
    SampledProcess row = sampled(process);
    row.name_at = static_cast<uint32_t>(pass_.names.size());
    row.name_length = static_cast<uint32_t>(name.size());
    pass_.names.insert(pass_.names.end(), name.begin(), name.end());
    pass_.rows.push_back(row);
  }
}

const SampledPass& TableCopy::wait() {
  full_.wait(false, std::memory_order_acquire);
  return pass_;
}

void TableCopy::release() {
  if (!pass_.whole) {
    const size_t room = pass_.processes + pass_.processes / 4;
    pass_.rows.reserve(room);
    pass_.names.reserve(std::max(room * kNameBytes, pass_.names.capacity() * 3 / 2));
  }
  full_.store(false, std::memory_order_release);
}

}  // namespace host
