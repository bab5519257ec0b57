// Stand-in for the base library's reading of whole files, for the small files of processes.
#ifndef PLATFORM_STANDIN_ANDROID_BASE_FILE_H_
#define PLATFORM_STANDIN_ANDROID_BASE_FILE_H_

#include <string>

namespace android::base {
inline constexpr size_t TW_LARGEST_FILE = 4096;

// Reads the file at `path` into `content`, which is cleared first, with one read of at most
// TW_LARGEST_FILE bytes: what stands in a process file is chosen by the process, which can make its
// command line endless. With `follow_symlinks` false a path whose last component is a symbolic link
// fails with ELOOP. On failure returns false with errno set, and `content` is empty.
bool ReadFileToString(const std::string& path, std::string* content, bool follow_symlinks = false);

}  // namespace android::base

#endif  // PLATFORM_STANDIN_ANDROID_BASE_FILE_H_
