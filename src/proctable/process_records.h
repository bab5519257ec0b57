// The process table's records, plain and apart from the code that fills them. Sizes are in kB,
// times in seconds of time(). A slot of zeros is a free slot.
#ifndef PROCTABLE_PROCESS_RECORDS_H_
#define PROCTABLE_PROCESS_RECORDS_H_

#include <cstdint>

class ProcessCollector;

// One set of a process's numbers. The counts come from decimal text and are compared as signed.
struct tw_process_desc {
  char name[64];  // base name, "#", pid; "<dummy pid>" until the status was first read
  int32_t ppid;
  char state;  // 'R', 'S', 'D', 'Z' and so on
  int32_t threads;
  int32_t fd_size;         // size of the descriptor table
  uint64_t vm_hwm_kb;      // peak resident size
  uint64_t vm_rss_kb;      // resident size
  uint64_t vss_dalvik_kb;  // mapped sizes by division, refreshed only while `interested`
  uint64_t vss_heap_kb;
  uint64_t vss_ashmem_kb;
  uint64_t vss_kgsl_kb;
  uint64_t vss_dmabuf_kb;
  int32_t open_files;
};

// The parent of all kernel tasks.
inline constexpr int32_t TW_KTHREADD = 2;

// One slot of the table.
struct tw_process_entry {
  uint32_t pid;            // 0: the slot is free; else equal to the slot's index
  tw_process_entry* next;  // toward older entries; null at the tail
  tw_process_entry* prev;  // toward the head; never read while the entry is the head
  bool baseline_taken;     // `baseline` belongs to the current identity
  int64_t identity_time;   // when the current name was first seen
  int64_t inspected_time;
  tw_process_desc desc;         // the current numbers
  bool interested;              // its memory map is worth reading
  tw_process_desc baseline;     // the levels from which growth is measured
  void* divisions_block;        // tagged blocks in which the event handler keeps what it last saw:
  void* files_counter_block;    // owned by the slot, or by the copy of the old identity that goes
  void* threads_counter_block;  // out with a rename; see audit/entry_blocks.h
};

// The table. Its entries are linked from the newest to the oldest.
struct tw_process_list {
  tw_process_entry* entries;  // the slot of pid P is entries[P]
  uint32_t count;             // entries linked
  uint32_t remaining;         // entries not yet visited in the pass under way
  uint32_t native_count;      // inspected in this pass: children of pid 1,
  uint32_t runtime_count;     // of a zygote,
  uint32_t kthread_count;     // of pid 2
  ProcessCollector* runtime_collector;
  ProcessCollector* native_collector;
  tw_process_entry* head;
};

#endif  // PROCTABLE_PROCESS_RECORDS_H_
