// The two helpers of the platform's base library that the readers of small process files use.
#ifndef PLATFORM_ANDROID_BASE_H_
#define PLATFORM_ANDROID_BASE_H_

#include <string>

namespace android::base {

// The formatted text, of any length.
std::string StringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

// Reads the whole file at `path` into `content`, which is cleared first. With `follow_symlinks`
// false a path whose last component is a symbolic link fails with ELOOP. On failure returns false
// with errno set, and `content` holds what was read until then.
bool ReadFileToString(const std::string& path, std::string* content, bool follow_symlinks = false);

}  // namespace android::base

#endif  // PLATFORM_ANDROID_BASE_H_
