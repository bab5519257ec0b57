// The system's memory figures, in kB as the kernel prints them; 0 for one that was not read.
#ifndef INSPECT_SYSTEM_MEMINFO_RECORD_H_
#define INSPECT_SYSTEM_MEMINFO_RECORD_H_

#include <cstdint>

struct tw_meminfo_t {
  int32_t mem_total_kb;
  int32_t mem_free_kb;
  int32_t mem_available_kb;
  int32_t sunreclaim_kb;
};

#endif  // INSPECT_SYSTEM_MEMINFO_RECORD_H_
