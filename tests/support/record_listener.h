// The service's end of the event socket: takes the real name and hands out what arrives.
#ifndef TESTS_SUPPORT_RECORD_LISTENER_H_
#define TESTS_SUPPORT_RECORD_LISTENER_H_

#include <string>

#include "platform/unique_fd.h"

class RecordListener {
 public:
  // With a `backlog` as for listen(2). Throws when the name is taken.
  explicit RecordListener(int backlog = 16);

  // All bytes of the next connection, its terminating NUL included, once its sender has closed it;
  // "(nothing)" when none came within `timeout_ms`.
  std::string next(int timeout_ms = 60000);

  int fd() const { return socket_.get(); }

 private:
  unique_fd socket_;
};

#endif  // TESTS_SUPPORT_RECORD_LISTENER_H_
