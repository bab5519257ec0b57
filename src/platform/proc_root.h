// The root of the process file system that the readers look at: /proc, unless
// taskwarden_set_proc_root() (taskwarden/taskwarden.h) named another before the start.
#ifndef PLATFORM_PROC_ROOT_H_
#define PLATFORM_PROC_ROOT_H_

#include <stddef.h>

// Room for any path that the library forms: a root of at most 127 bytes and the longest name below.
inline constexpr size_t TW_PATH_SIZE = 256;

// NUL-terminated, without a trailing slash, at most 127 bytes.
const char* tw_proc_root();

// Formats the path of a file below the root: tw_proc_path(path, "/%u/status", pid).
void tw_proc_path(char (&path)[TW_PATH_SIZE], const char* format, ...)
    __attribute__((format(printf, 2, 3)));

#endif  // PLATFORM_PROC_ROOT_H_
