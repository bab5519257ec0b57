// A file on a file system of our own (FUSE), which takes what is written to it and answers only
// when it is told to: the kernel waits for the answer, and whoever wrote does, with all its locks.
#ifndef STORM_SILENT_FILE_H_
#define STORM_SILENT_FILE_H_

#include <sys/types.h>

#include <string>

#include "platform/unique_fd.h"

class SilentFile {
 public:
  // Mounts the file system on a new directory, and forks the process that serves it. Takes root in
  // a mount namespace of its own; /dev/fuse is made if there is none. Throws std::runtime_error.
  SilentFile();
  // Ends the server, and with it every wait for the file.
  ~SilentFile();
  SilentFile& operator=(SilentFile&&) = delete;  // nor any copy

  const std::string& path() const { return path_; }
  // Answers what waits, and from now on at once.
  void answer();

 private:
  std::string directory_;
  std::string path_;
  unique_fd orders_;
  pid_t server_ = -1;
};

// A process that holds the lock of its own memory while it waits for `file`: a dirty page of the
// file is unmapped, which has it written first. Who reads its command line or its areas waits too.
// `name` is its short name; each takes a `page` of its own, of eight. Forked; killed at the end of
// the object.
class LockHolder {
 public:
  LockHolder(const SilentFile& file, int page, const std::string& name);
  ~LockHolder();
  LockHolder& operator=(LockHolder&&) = delete;  // nor any copy

  pid_t pid() const { return pid_; }
  // Has it take its lock.
  void hold();

 private:
  unique_fd orders_;
  pid_t pid_ = -1;
};

#endif  // STORM_SILENT_FILE_H_
