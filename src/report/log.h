// The failure log: one line in the system log's main buffer at error priority, under the tag of the
// area that reports. Formats and arguments are checked as for printf. errno is kept.
#ifndef REPORT_LOG_H_
#define REPORT_LOG_H_

#include <log/log.h>

#define TW_LOG(tag, ...) __android_log_buf_print(LOG_ID_MAIN, ANDROID_LOG_ERROR, tag, __VA_ARGS__)

inline constexpr const char* TW_TAG_STATS = "taskwarden stats";  // the table and every /proc reader
inline constexpr const char* TW_TAG_MAIN = "taskwarden main";    // the main cycle
inline constexpr const char* TW_TAG_AUDIT = "taskwarden audit";  // listener registration
inline constexpr const char* TW_TAG_EVENT = "taskwarden event";  // event polling

#endif  // REPORT_LOG_H_
