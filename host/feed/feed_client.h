// The receiving end of the feed.
#ifndef HOST_FEED_FEED_CLIENT_H_
#define HOST_FEED_FEED_CLIENT_H_

#include <string>
#include <vector>

#include "host/feed/feed_format.h"
#include "platform/unique_fd.h"

namespace host {

class FeedClient {
 public:
  // Connects to the feed at `path`, or to the first of feed_places() that answers if that is empty.
  // False with why(), a sentence that says what to do.
  bool connect(const std::string& path);

  enum class Got { kNews, kNothing, kEnd };
  // Takes the next message into view(); kNothing when none came within `wait_ms`, -1 for no end of
  // waiting; kEnd, with why(), when the watch has ended, refuses, or speaks another version.
  Got next(int wait_ms, FeedView::News* news);

  const FeedView& view() const { return view_; }
  const std::string& why() const { return why_; }
  int fd() const { return fd_.get(); }

 private:
  unique_fd fd_;
  FeedView view_{};
  std::string why_{};
  std::string buffer_{};
};

}  // namespace host

#endif  // HOST_FEED_FEED_CLIENT_H_
