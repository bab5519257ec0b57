#include "support/record_listener.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstring>
#include <stdexcept>

#include "support/own_network.h"

RecordListener::RecordListener(int backlog) {
  own_network();
  socket_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  constexpr char kName[] = "taskwarden_native_socket";
  sockaddr_un address = {.sun_family = AF_UNIX, .sun_path = {}};
  memcpy(address.sun_path + 1, kName, sizeof(kName) - 1);
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + sizeof(kName));
  if (bind(socket_.get(), reinterpret_cast<sockaddr*>(&address), size) != 0 ||
      listen(socket_.get(), backlog) != 0) {
    throw std::runtime_error(std::string("event socket: ") + strerror(errno));
  }
}

std::string RecordListener::next(int timeout_ms) {
  pollfd ready = {.fd = socket_.get(), .events = POLLIN, .revents = 0};
  if (poll(&ready, 1, timeout_ms) != 1) {
    return "(nothing)";
  }
  const unique_fd connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  std::string all;
  char buffer[8192];
  for (ssize_t n; (n = read(connection.get(), buffer, sizeof(buffer))) > 0;) {
    all.append(buffer, static_cast<size_t>(n));
  }
  return all;
}
