// Stand-in for the system log's entry point: the line goes to the output's log side
// (platform/output.h) as formatted, under its tag; buffer and priority are the same for every line
// and are not shown.
#ifndef PLATFORM_STANDIN_LOG_LOG_H_
#define PLATFORM_STANDIN_LOG_LOG_H_

enum { LOG_ID_MAIN = 0 };
enum { ANDROID_LOG_ERROR = 6 };

// `tag` may be null. Returns 1. errno is kept. Any thread.
extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#endif  // PLATFORM_STANDIN_LOG_LOG_H_
