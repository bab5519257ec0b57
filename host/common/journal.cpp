#include "host/common/journal.h"

#include <stdlib.h>
#include <sys/socket.h>
#include <sys/stat.h>

#include <cstdint>

#include "host/common/local_socket.h"
#include "platform/unique_fd.h"

namespace host {

bool is_journal(int fd) {
  const char* const stream = ::getenv("JOURNAL_STREAM");
  struct stat file = {};
  return stream != nullptr && ::fstat(fd, &file) == 0 &&
         stream == std::to_string(file.st_dev) + ":" + std::to_string(file.st_ino);
}

std::string journal_datagram(const JournalFields& fields) {
  std::string text;
  for (const auto& [name, value] : fields) {
    text += name;
    if (value.find('\n') == value.npos) {
      text += "=" + value + "\n";
      continue;
    }
    text += "\n";
    for (uint64_t i = 0, length = value.size(); i < 8; ++i, length >>= 8) {
      text += static_cast<char>(length & 0xFF);
    }
    text += value + "\n";
  }
  return text;
}

bool send_to_journal(const JournalFields& fields, const std::string& socket) {
  sockaddr_un address;
  const unique_fd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok() || !set_path(socket, &address)) {
    return false;
  }
  const std::string text = journal_datagram(fields);
  const ssize_t sent = ::sendto(fd.get(), text.data(), text.size(), MSG_NOSIGNAL,
                                reinterpret_cast<const sockaddr*>(&address), sizeof(address));
  return sent == static_cast<ssize_t>(text.size());
}

}  // namespace host
