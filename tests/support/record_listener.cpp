#include "support/record_listener.h"

#include <poll.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstring>
#include <stdexcept>

#include "support/own_network.h"

RecordListener::RecordListener(int backlog) {
  own_network();
  socket_.reset(socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
  const sockaddr_un address = {AF_UNIX, "\0taskwarden_native_socket"};
  constexpr socklen_t kSize = offsetof(sockaddr_un, sun_path) + sizeof("taskwarden_native_socket");
  if (bind(socket_.get(), reinterpret_cast<const sockaddr*>(&address), kSize) != 0 ||
      listen(socket_.get(), backlog) != 0) {
    throw std::runtime_error(std::string("event socket: ") + strerror(errno));
  }
}

std::string RecordListener::next(int timeout_ms) {
  pollfd ready = {socket_.get(), POLLIN, 0};
  if (poll(&ready, 1, timeout_ms) != 1) return "(nothing)";
  const unique_fd connection(accept4(socket_.get(), nullptr, nullptr, SOCK_CLOEXEC));
  std::string all;
  for (char byte; read(connection.get(), &byte, 1) == 1;) all += byte;
  return all;
}
