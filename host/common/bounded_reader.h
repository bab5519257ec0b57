// Reading what may never answer. The files of a process that come from its memory (cmdline,
// environ, maps, smaps) make their reader wait in the kernel for as long as that process or its
// file systems like, and nothing but the end of the reader ends the wait. So a child process reads
// them, which is killed when its time is up. Any thread.
#ifndef HOST_COMMON_BOUNDED_READER_H_
#define HOST_COMMON_BOUNDED_READER_H_

#include <sys/types.h>

#include <chrono>
#include <cstddef>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/file_text.h"

namespace host {

// What somebody who waits for one answer can wait for.
inline constexpr std::chrono::milliseconds kReadPatience{1000};

// What a person is told where the error is ETIMEDOUT.
inline constexpr char kNoAnswer[] = "did not answer in time";

// Reads the files at `paths`, one after the other, `most` bytes of each or some more. Result: one
// for each path, in their order. Those that were not read when `patience` was over have ETIMEDOUT;
// all others are as of read_file(), or of answer_within().
std::vector<FileText> read_files_within(const std::vector<std::string>& paths, size_t most,
                                        std::chrono::milliseconds patience = kReadPatience);

// Sends the asker a part of an answer. It does not return when nobody takes it any more.
using Tell = std::function<void(std::string_view part)>;

// Has `work` done in a child, a fork of this process that has no descriptors of it: it tells its
// answer, and returns 0 or an errno value. It may call into the library, and must not wait for
// another thread. Result: what was told, cut at `most` bytes, and as the error
//   what `work` returned; ENODATA if that was 0 and nothing was told;
//   ETIMEDOUT: it took longer than `patience`, and was killed;
//   EIO: it crashed, or threw;
//   EBUSY: as many children are left behind (see below) as may be, and it was not started;
//   that of fork(2) or pipe(2).
// Takes `patience` and a tenth of a second more at the most.
FileText answer_within(std::chrono::milliseconds patience, size_t most,
                       const std::function<int(const Tell& tell)>& work);

// The children that SIGKILL did not end at once, since they wait where no signal counts. They are
// looked at, and let go when they have ended, whenever somebody reads; there are never more than
// kMostLeftBehind and one for each thread that reads just then.
inline constexpr size_t kMostLeftBehind = 4;
std::vector<pid_t> children_left_behind();

// Takes over those of the program that this process was before execve(2).
void adopt_children(const std::vector<pid_t>& children);

}  // namespace host

#endif  // HOST_COMMON_BOUNDED_READER_H_
