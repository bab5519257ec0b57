// Stand-in for the base library's formatting into a string.
#ifndef PLATFORM_STANDIN_ANDROID_BASE_STRINGPRINTF_H_
#define PLATFORM_STANDIN_ANDROID_BASE_STRINGPRINTF_H_

#include <string>

namespace android::base {

// The formatted text, of any length.
std::string StringPrintf(const char* format, ...) __attribute__((format(printf, 1, 2)));

}  // namespace android::base

#endif  // PLATFORM_STANDIN_ANDROID_BASE_STRINGPRINTF_H_
