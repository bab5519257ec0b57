#include "host/explain/process_reader.h"

#include <dirent.h>
#include <errno.h>
#include <fcntl.h>
#include <string.h>
#include <sys/stat.h>
#include <sys/xattr.h>
#include <unistd.h>

#include <algorithm>
#include <cctype>
#include <memory>
#include <optional>

#include "host/common/file_text.h"
#include "host/common/words.h"
#include "host/explain/look.h"
#include "host/explain/memory_names.h"
#include "host/explain/open_names.h"
#include "host/explain/process_stat.h"
#include "platform/unique_fd.h"

namespace host {
namespace {

using Clock = std::chrono::steady_clock;

struct CloseDirectory {
  void operator()(DIR* directory) const { ::closedir(directory); }
};
using OwnDirectory = std::unique_ptr<DIR, CloseDirectory>;

// Calls `take` with each entry of a directory whose name is a number. Result as of read_lines().
template <typename Take>
int each_number(const std::string& path, Deadline deadline, Take take) {
  const OwnDirectory directory(::opendir(path.c_str()));
  if (directory == nullptr) {
    return errno;
  }
  while (Clock::now() < deadline) {
    errno = 0;
    const dirent* const entry = ::readdir(directory.get());
    if (entry == nullptr) {
      return errno;
    }
    if (std::isdigit(static_cast<unsigned char>(entry->d_name[0])) != 0) {
      take(::dirfd(directory.get()), entry->d_name);
    }
  }
  return ETIMEDOUT;
}

// What was found counts, if anything was; the error only tells whether that is all.
Reading reading_of(int error, Holdings holdings) {
  holdings.whole = error == 0;
  const bool failed = error != 0 && holdings.total == 0;
  return {failed ? error : 0, std::move(holdings)};
}

// The half of the time that is left.
Deadline half_way(Deadline deadline) {
  return deadline - (deadline - Clock::now()) / 2;
}

}  // namespace

int read_lines(const std::string& path, size_t most, Deadline deadline,
               const std::function<void(std::string_view line)>& take) {
  const unique_fd fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NOCTTY));
  if (!fd.ok()) {
    return errno;
  }
  char chunk[65536];
  std::string line;
  size_t taken = 0;
  while (taken < most && Clock::now() < deadline) {
    const ssize_t n = ::read(fd.get(), chunk, sizeof(chunk));
    if (n <= 0) {
      if (!line.empty()) {
        take(line);
      }
      return n == 0 ? 0 : errno;
    }
    taken += static_cast<size_t>(n);
    for (std::string_view rest(chunk, static_cast<size_t>(n)); !rest.empty();) {
      const size_t end = rest.find('\n');
      line.append(rest.substr(0, std::min(end, kLineMost - line.size())));
      if (end == rest.npos) {
        break;
      }
      take(line);
      line.clear();
      rest.remove_prefix(end + 1);
    }
  }
  return ETIMEDOUT;
}

std::string read_link(int directory_fd, const std::string& path) {
  char target[4096];
  const ssize_t n = ::readlinkat(directory_fd, path.c_str(), target, sizeof(target) - 1);
  return {target, n > 0 ? static_cast<size_t>(n) : 0};
}

Reading read_threads(const std::string& process, Deadline deadline) {
  Tally tally;
  const auto own = parse_process_stat(read_file(process + "/stat").text);
  const std::string first = own ? own->name : "";
  const std::string tasks = process + "/task";
  const int error = each_number(tasks, deadline, [&](int, const char* id) {
    const auto stat = parse_process_stat(read_file(tasks + "/" + id + "/stat").text);
    Holding held{.kind = "thread", .amount = 1};
    if (stat) {
      held.name = thread_family_of(stat->name, first);
      held.newest_start = stat->start;
      parse_number(id, &held.newest);
    }
    tally.add(std::move(held));
  });
  return reading_of(error, tally.ranked());
}

Reading read_memory(const std::string& process, Deadline deadline) {
  MemoryNames names;
  const int error = read_lines(process + "/smaps", kSmapsMost, deadline,
                               [&](std::string_view line) { names.take(line); });
  return reading_of(error, names.ranked());
}

Reading read_open_files(const std::string& process, Deadline deadline, Holdings* folders) {
  OpenNames names;
  bool is_whole = true;
  std::map<uint64_t, std::string> links;  // one for each socket
  const std::string path = process + "/fd";
  size_t unread = 0;
  const int error = each_number(path, half_way(deadline), [&](int directory, const char* number) {
    const std::string target = read_link(directory, number);
    if (target.empty()) {
      ++unread;
      return;
    }
    struct stat link = {};
    if (target.starts_with("pipe:")) {
      ::fstatat(directory, number, &link, AT_SYMLINK_NOFOLLOW);
    }
    uint64_t inode = 0;
    if (parse_inode(target, "socket", &inode)) {
      links.emplace(inode, number);
    }
    names.take(target, (link.st_mode & S_IRUSR) != 0, (link.st_mode & S_IWUSR) != 0);
  });
  is_whole = error == 0 && unread == 0;
  using Table = SocketTables::Table;
  for (const Table table :
       {Table::kTcp, Table::kTcp6, Table::kUdp, Table::kUdp6, Table::kUnix, Table::kNetlink}) {
    if (names.sockets().wants_any()) {
      read_lines(process + "/net/" + SocketTables::file_name(table), kSocketTableMost,
                 half_way(deadline),
                 [&](std::string_view line) { names.sockets().take(table, line); });
    }
  }
  // The kernel tells the protocol of any socket (sockfs in net/socket.c).
  for (const uint64_t inode : names.unknown_sockets()) {
    char protocol[32];
    const std::string link = path + "/" + links[inode];
    const ssize_t n = ::getxattr(link.c_str(), "system.sockprotoname", protocol, sizeof(protocol));
    if (n > 0) {
      names.set_protocol(inode, {protocol, static_cast<size_t>(n)});
    }
    if (Clock::now() >= deadline) {
      break;
    }
  }
  *folders = names.folders();
  folders->whole = is_whole;
  Holdings held = names.ranked();
  if (unread != 0 && held.total == 0) {
    return {EACCES, {}};
  }
  Reading reading = reading_of(error, std::move(held));
  reading.holdings.whole = is_whole;
  return reading;
}

}  // namespace host
