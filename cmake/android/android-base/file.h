// Reads a file whole.
#ifndef ANDROID_ANDROID_BASE_FILE_H_
#define ANDROID_ANDROID_BASE_FILE_H_

#include <string>

namespace android::base {
bool ReadFileToString(const std::string& path, std::string* content, bool follow_symlinks);
}  // namespace android::base

#endif  // ANDROID_ANDROID_BASE_FILE_H_
