#include "host/feed/feed_client.h"

#include <errno.h>
#include <poll.h>
#include <string.h>
#include <sys/socket.h>

#include "host/common/escape.h"
#include "host/feed/feed_place.h"

namespace host {

bool FeedClient::connect(const std::string& path) {
  view_ = FeedView();
  why_ = "no watch is running; start \"taskwarden watch\", or the service taskwarden";
  for (const std::string& place : path.empty() ? feed_places() : std::vector{path}) {
    fd_ = connect_to_feed(place);
    if (fd_.ok()) {
      buffer_.resize(kFeedMessageMax);
      return true;
    }
    if (errno == EACCES) {
      why_ = "this user may not read \"" + escape_text(place) +
             "\"; use sudo, or become a member of the group taskwarden";
    } else if (errno != ENOENT && errno != ECONNREFUSED && errno != ENOTDIR) {
      why_ = "\"" + escape_text(place) + "\": " + ::strerror(errno);
    }
  }
  return false;
}

FeedClient::Got FeedClient::next(int wait_ms, FeedView::News* news) {
  pollfd awaited = {fd_.get(), POLLIN, 0};
  if (::poll(&awaited, 1, wait_ms) <= 0) {
    return Got::kNothing;
  }
  const ssize_t n = ::recv(fd_.get(), buffer_.data(), buffer_.size(), 0);
  if (n < 0 && (errno == EINTR || errno == EAGAIN)) {
    return Got::kNothing;
  }
  if (n <= 0) {
    why_ = "the watch has ended";
    return Got::kEnd;
  }
  *news = view_.take({buffer_.data(), static_cast<size_t>(n)});
  if (*news == FeedView::News::kRefused || *news == FeedView::News::kBadFormat) {
    why_ = *news == FeedView::News::kRefused ? "the watch refuses: " + escape_text(view_.why())
                                             : "the watch is of another version; restart it";
    return Got::kEnd;
  }
  return Got::kNews;
}

}  // namespace host
