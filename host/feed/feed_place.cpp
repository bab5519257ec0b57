#include "host/feed/feed_place.h"

#include <errno.h>
#include <fcntl.h>
#include <grp.h>
#include <stdlib.h>
#include <sys/file.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/time.h>
#include <unistd.h>

#include <filesystem>
#include <utility>

#include "host/common/local_socket.h"

namespace host {
namespace {

constexpr int kBacklog = 64;
constexpr char kSystemPlace[] = "/run/taskwarden/feed";
constexpr char kGroup[] = "taskwarden";

std::string below(const char* variable, const std::string& rest) {
  const char* const folder = ::getenv(variable);
  return folder != nullptr && folder[0] == '/' ? folder + rest : "";
}

// Waits a second at most for a listener that is full.
unique_fd connect_in_time(const std::string& path, int flags) {
  sockaddr_un address;
  if (!set_path(path, &address)) {
    return {};
  }
  unique_fd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | flags, 0));
  const timeval patience = {1, 0};
  ::setsockopt(fd.get(), SOL_SOCKET, SO_SNDTIMEO, &patience, sizeof(patience));
  if (!fd.ok() ||
      ::connect(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) != 0) {
    fd.reset();
  }
  return fd;
}

// A socket that was left behind.
bool is_stale(const std::string& path) {
  struct stat file = {};
  return ::lstat(path.c_str(), &file) == 0 && S_ISSOCK(file.st_mode) &&
         !connect_in_time(path, SOCK_NONBLOCK).ok() && errno == ECONNREFUSED;
}

void set_readers(const std::string& path) {
  const group* const readers = ::getgrnam(kGroup);
  const bool given =
      readers != nullptr && (readers->gr_gid == ::getegid() ||
                             ::chown(path.c_str(), static_cast<uid_t>(-1), readers->gr_gid) == 0);
  ::chmod(path.c_str(), given ? 0660 : 0600);
}

}  // namespace

std::string own_feed_place() {
  if (const char* const given = ::getenv("RUNTIME_DIRECTORY"); given != nullptr && *given != '\0') {
    const std::string folders = given;  // with colons between them (systemd.exec(5))
    return folders.substr(0, folders.find(':')) + "/feed";
  }
  return ::geteuid() == 0 ? kSystemPlace : below("XDG_RUNTIME_DIR", "/taskwarden/feed");
}

std::vector<std::string> feed_places() {
  std::vector<std::string> places = {kSystemPlace};
  if (const std::string own = own_feed_place(); !own.empty() && own != kSystemPlace) {
    places.push_back(own);
  }
  return places;
}

unique_fd offer_feed(const std::string& path) {
  sockaddr_un address;
  if (!set_path(path, &address)) {
    return {};
  }
  const std::filesystem::path folder = std::filesystem::path(path).parent_path();
  unique_fd fd(::socket(AF_UNIX, SOCK_SEQPACKET | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  const auto bound = [&] {
    const mode_t before = ::umask(0177);
    const bool done =
        ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), sizeof(address)) == 0;
    ::umask(before);
    return done;
  };
  // Two watches that begin at once must not take the place from each other.
  const unique_fd lock(::open(folder.empty() ? "." : folder.c_str(), O_RDONLY | O_CLOEXEC));
  ::flock(lock.get(), LOCK_EX | LOCK_NB);
  if (!fd.ok()) {
    return {};
  }
  if (!bound()) {
    const int reason = errno;
    if (reason != EADDRINUSE || !is_stale(path) || ::unlink(path.c_str()) != 0 || !bound()) {
      errno = reason;
      return {};
    }
  }
  set_readers(path);
  return ::listen(fd.get(), kBacklog) == 0 ? std::move(fd) : unique_fd();
}

unique_fd connect_to_feed(const std::string& path) {
  return connect_in_time(path, 0);
}

}  // namespace host
