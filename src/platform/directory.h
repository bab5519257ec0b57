// Reads a directory entry by entry through a fixed buffer: no allocation, entries in the order the
// kernel gives them.
#ifndef PLATFORM_DIRECTORY_H_
#define PLATFORM_DIRECTORY_H_

#include <dirent.h>

#include <cstddef>

#include "platform/unique_fd.h"

struct tw_dirent {
  const char* name;    // NUL-terminated, valid until the next call
  unsigned char type;  // DT_DIR, DT_LNK and so on; never DT_UNKNOWN for an entry that still exists
};

class Directory {
 public:
  // Opens `path`; ok() tells whether that succeeded, and errno why not.
  explicit Directory(const char* path);

  bool ok() const { return fd_ >= 0; }
  int fd() const { return fd_; }

  // Lists the directory open at `fd`, which stays the caller's, from its beginning instead.
  void rewind(int fd);

  // The next entry, or false at the end. An error while reading (the process of a /proc directory
  // has gone) ends the directory; failed() tells such an end from a real one.
  bool next(tw_dirent* entry);
  bool failed() const { return failed_; }

 private:
  unique_fd owned_;
  int fd_;
  size_t position_ = 0;
  size_t filled_ = 0;
  bool failed_ = false;
  alignas(8) char buffer_[8192];
};

// The type of the entry `name` in the directory open at `directory_fd`, for file systems that list
// entries without one (readdir(3)): `type` itself unless it is DT_UNKNOWN.
unsigned char tw_entry_type(int directory_fd, const char* name, unsigned char type);

#endif  // PLATFORM_DIRECTORY_H_
