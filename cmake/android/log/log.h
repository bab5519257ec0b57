// The system log's entry point: buffer, priority, tag (may be null), format.
#ifndef ANDROID_LOG_LOG_H_
#define ANDROID_LOG_LOG_H_

typedef enum log_id { LOG_ID_MAIN = 0 } log_id_t;
typedef enum android_LogPriority { ANDROID_LOG_ERROR = 6 } android_LogPriority;

extern "C" int __android_log_buf_print(int bufID, int prio, const char* tag, const char* fmt, ...)
    __attribute__((format(printf, 4, 5)));

#endif  // ANDROID_LOG_LOG_H_
