// Addresses of local sockets that have a path.
#ifndef HOST_COMMON_LOCAL_SOCKET_H_
#define HOST_COMMON_LOCAL_SOCKET_H_

#include <errno.h>
#include <sys/un.h>

#include <algorithm>
#include <string>

namespace host {

// Makes `*address` that of `path`. False with ENAMETOOLONG if it does not fit, which is beyond 107
// bytes (unix(7)).
inline bool set_path(const std::string& path, sockaddr_un* address) {
  *address = {};
  address->sun_family = AF_UNIX;
  if (path.empty() || path.size() >= sizeof(address->sun_path)) {
    errno = ENAMETOOLONG;
    return false;
  }
  std::copy(path.begin(), path.end(), address->sun_path);
  return true;
}

}  // namespace host

#endif  // HOST_COMMON_LOCAL_SOCKET_H_
