// Where the feed of a watch is.
#ifndef HOST_FEED_FEED_PLACE_H_
#define HOST_FEED_FEED_PLACE_H_

#include <cstddef>
#include <string>
#include <vector>

#include "platform/unique_fd.h"

namespace host {

// The longest path of a socket, in bytes (unix(7)).
inline constexpr size_t kPathMax = 107;

// Where a watch of this user offers its feed unless told otherwise: "feed" in systemd's
// $RUNTIME_DIRECTORY, else for root in /run/taskwarden, else in $XDG_RUNTIME_DIR/taskwarden. Empty
// if there is no such place.
std::string own_feed_place();

// Where a reader looks for one: the system's, then that of its user.
std::vector<std::string> feed_places();

// A listening socket at `path`, non-blocking and close-on-exec. A socket that nobody listens on any
// more gives way. Who may connect: the watch's user, root, and, if there is a group "taskwarden"
// and it may be given to the socket, that group. Not ok() on failure, with errno: EADDRINUSE when
// another watch offers its feed there.
unique_fd offer_feed(const std::string& path);

// A connection to the feed at `path`, blocking. Not ok() with errno: ENOENT or ECONNREFUSED when no
// watch offers one, EACCES when this user may not read it.
unique_fd connect_to_feed(const std::string& path);

}  // namespace host

#endif  // HOST_FEED_FEED_PLACE_H_
