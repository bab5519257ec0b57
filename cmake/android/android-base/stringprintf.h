// Formats into a string.
#ifndef ANDROID_ANDROID_BASE_STRINGPRINTF_H_
#define ANDROID_ANDROID_BASE_STRINGPRINTF_H_

#include <string>

namespace android::base {
std::string StringPrintf(const char* fmt, ...) __attribute__((format(printf, 1, 2)));
}  // namespace android::base

#endif  // ANDROID_ANDROID_BASE_STRINGPRINTF_H_
