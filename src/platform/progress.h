// How far the cycle has come and what it reads, for other threads to see
// (taskwarden_get_progress()), and the processes whose memory it leaves alone. Written by the
// cycle's thread without a lock.
#ifndef PLATFORM_PROGRESS_H_
#define PLATFORM_PROGRESS_H_

#include <cstdint>

#include "taskwarden/taskwarden.h"

// Says while it lives that the thread reads `file`, a TASKWARDEN_READS_, of `pid` (0: of none).
// They nest.
class ReadingMark {
 public:
  explicit ReadingMark(int file, unsigned pid = 0);
  ~ReadingMark();
  ReadingMark(const ReadingMark&) = delete;
  ReadingMark& operator=(const ReadingMark&) = delete;

 private:
  const uint64_t before_;
};

// One step of the cycle is done.
void tw_note_step();
void tw_note_running(bool is_running);
void tw_note_paused(bool is_paused);
void tw_note_passes(uint32_t passes);
void tw_note_slots(uint32_t slots, bool were_refused);
// So many more processes, or less, have a baseline.
void tw_note_baselines(int32_t more);

// Whether the memory of `pid` is to be left alone; `start_time` is asked for its start, and only if
// there are spared processes of this pid, as is the file system for its user, if there are spared
// users. Any thread.
bool tw_is_spared(unsigned pid, uint64_t (*start_time)(unsigned pid));

#endif  // PLATFORM_PROGRESS_H_
