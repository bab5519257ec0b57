// The process table with nothing in it but the processes of a population, and the library's visits
// of them.
#ifndef BENCH_CHILD_TABLE_H_
#define BENCH_CHILD_TABLE_H_

#include <sys/types.h>

#include <cstdint>
#include <span>

#include "proctable/process_records.h"

// Wires the event framework together and sends what the library writes nowhere. Once a program.
void prepare_library();
// The failures that the library has logged since then.
uint64_t logged_failures();

// What the visits found, added up over the table.
struct TableTotals {
  int64_t threads = 0;
  int64_t open_files = 0;
  bool operator==(const TableTotals&) const = default;
};

// There is one table, so one owner at a time.
class ChildTable {
 public:
  // Links the processes and visits them until the visit is an ordinary one: names known, baselines
  // taken, events polled, none interesting.
  explicit ChildTable(std::span<const pid_t> pids);
  ~ChildTable();
  ChildTable& operator=(ChildTable&&) = delete;  // nor any copy

  // One whole pass. False if it was none.
  bool visit_all();
  // The same behind a scan. In a pid namespace where there is more than the population it is all of
  // that.
  bool scan_and_visit_all();
  // Visits keep the numbers of what has not run, or not; returns when they have come to rest.
  void visit_only_what_ran(bool only_what_ran);
  // The next visit reads none because its turn has come.
  void put_off_readings();
  // The number of processes visited in a slice of `budget_ms` that begins a pass.
  uint32_t visit_slice(int32_t budget_ms);

  // Overwrites the thread counts, so that the next pass has to find them anew.
  void forget();
  TableTotals totals() const;
  const tw_process_entry& entry(pid_t pid) const { return list_->entries[pid]; }
  // Whether all are as after an ordinary pass in which nothing happened.
  bool quiet() const;

 private:
  void link(pid_t pid);

  tw_process_list* list_;
};

#endif  // BENCH_CHILD_TABLE_H_
