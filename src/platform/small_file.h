// Reads a small file with the fewest calls there can be: open, one read, close.
#ifndef PLATFORM_SMALL_FILE_H_
#define PLATFORM_SMALL_FILE_H_

#include <stddef.h>
#include <sys/types.h>

// Reads the file `path`, seen from the directory open at `directory_fd` (or AT_FDCWD), into
// `buffer`, which gets no terminator. `flags` are further ones for openat(2). One read delivers a
// process file up to a page of it whole, and a regular file too; what is beyond `size` is left. A
// FIFO or a device holds nothing up.
// Returns the count of bytes, or -1 with errno set.
ssize_t tw_read_small_file(int directory_fd, const char* path, int flags, char* buffer,
                           size_t size);

#endif  // PLATFORM_SMALL_FILE_H_
