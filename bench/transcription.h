// The readers written down plainly: stdio, readdir and the scan formats. They find the same numbers
// as the library's and are kept only to be measured against.
#ifndef BENCH_TRANSCRIPTION_H_
#define BENCH_TRANSCRIPTION_H_

#include <cstdint>

#include "inspect/string_counter.h"
#include "inspect/vma_division.h"
#include "proctable/process_records.h"

namespace transcription {

// Whether the process is there; then its status, command line and number of descriptors.
bool visit(int pid, tw_process_desc* desc);
// The five mapped sizes; the number of areas.
int32_t maps(int pid, tw_process_desc* desc);
// The 18 totals; the sum of the resident sizes.
uint64_t smaps(int pid, vma_division_t* divisions);
void threads(int pid, StringCounter* counter);
// The number of processes that are watched.
uint32_t scan();

}  // namespace transcription

#endif  // BENCH_TRANSCRIPTION_H_
