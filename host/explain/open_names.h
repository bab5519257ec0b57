// Open files under the names that people on Linux know, from the targets of the links in
// /proc/PID/fd (proc_pid_fd(5)) and the tables of sockets in /proc/PID/net (proc_pid_net(5)). Pure.
//
// kind             name
// file             path
// deleted file     path
// device           path below /dev
// memfd            its name (memfd_create(2))
// shared memory    path below /dev/shm
// socket           see SocketTables
// pipe             which ends of it the process has
// anon_inode       what it is: eventfd, eventpoll (epoll), inotify, timerfd, io_uring ...
// namespace        "net", "mnt" ...
#ifndef HOST_EXPLAIN_OPEN_NAMES_H_
#define HOST_EXPLAIN_OPEN_NAMES_H_

#include <bitset>
#include <cstdint>
#include <map>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "host/explain/holdings.h"

namespace host {

// Tells sockets by what the tables of their network namespace say:
//   tcp listening on port 80, tcp on port 80   one that was accepted there
//   tcp to 192.0.2.1:5432, udp to ...          one that was connected
//   udp on port 53
//   unix /run/x, unix listening on /run/x, unix without a name
//   netlink
// A state other than the usual follows as ss(8) writes it: "tcp on port 80, CLOSE-WAIT". A
// connection counts as accepted if a socket of the namespace listens on its port, or if its port is
// below 32768 and the peer's is not, as ephemeral ports are by default.
class SocketTables {
 public:
  enum class Table { kTcp, kTcp6, kUdp, kUdp6, kUnix, kNetlink };
  static const char* file_name(Table table);

  // Asks for the socket with this inode.
  void want(uint64_t inode) { wanted_[inode]; }
  bool wants_any() const { return !wanted_.empty(); }
  // The next line of `table`, its heading included.
  void take(Table table, std::string_view line);
  // What a socket that was asked for is, once the tables were read; empty for one in none of them.
  std::string name_of(uint64_t inode) const;

 private:
  struct Socket {
    bool found = false;
    bool is_inet = false;
    std::string protocol{};  // or all of its name
    std::string peer{};      // "192.0.2.1:5432"; empty without one
    uint16_t port = 0;
    uint16_t peer_port = 0;
    uint8_t state = 0;
  };

  void take_inet(const char* protocol, std::string_view line);
  void take_unix(std::string_view line);
  void take_netlink(std::string_view line);

  std::unordered_map<uint64_t, Socket> wanted_;
  std::bitset<65536> listening_;
};

// The descriptors of one process, one by one.
class OpenNames {
 public:
  // A descriptor's link target, and which ends of a pipe the link's mode has: reading (0400),
  // writing (0200).
  void take(std::string_view target, bool reads, bool writes);

  // To be told what the sockets are.
  SocketTables& sockets() { return sockets_; }
  // The protocol of a socket that is in no table, as the kernel names it ("TCP", "NETLINK").
  void set_protocol(uint64_t inode, std::string_view protocol);
  // Sockets in no table, once the tables were read.
  std::vector<uint64_t> unknown_sockets() const;

  Holdings ranked() const;
  // The same files by the folder that they are in: many files are one leak.
  Holdings folders() const { return folders_.ranked(); }

 private:
  struct Pipe {
    bool is_read = false;
    bool is_written = false;
    int64_t count = 0;  // of descriptors
  };

  Tally tally_;
  Tally folders_;
  SocketTables sockets_;
  std::map<uint64_t, int64_t> socket_counts_;
  std::map<uint64_t, std::string> protocols_;
  std::map<uint64_t, Pipe> pipes_;
};

// The inode in "socket:[INODE]" where `type` is "socket"; false where `target` is something else.
bool parse_inode(std::string_view target, std::string_view type, uint64_t* inode);

}  // namespace host

#endif  // HOST_EXPLAIN_OPEN_NAMES_H_
