#include "host/explain/open_names.h"

#include <arpa/inet.h>
#include <string.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <utility>

#include "host/common/words.h"

namespace host {
namespace {

constexpr uint8_t kEstablished = 1;
constexpr uint8_t kListening = 10;
constexpr uint16_t kEphemeral = 32768;
constexpr std::string_view kDeleted = " (deleted)";

// By the kernel's number (include/net/tcp_states.h).
constexpr std::array<const char*, 13> kStates = {
    "",           "",          "SYN-SENT",      "SYN-RECV",   "FIN-WAIT-1",
    "FIN-WAIT-2", "TIME-WAIT", "not connected", "CLOSE-WAIT", "LAST-ACK",
    "",           "CLOSING",   "SYN-RECV"};

struct Endpoint {
  std::string address{};  // empty: none in particular
  uint16_t port = 0;
};

// "0100007F:0016", or the same with four words of IPv6: words are in the byte order of the machine.
bool parse_endpoint(std::string_view text, Endpoint* endpoint) {
  const std::string_view address = take_until(&text, ':');
  uint32_t words[4] = {};
  const size_t count = address.size() / 8;
  if (!parse_number(text, &endpoint->port, 16) || (count != 1 && count != 4) ||
      address.size() % 8 != 0) {
    return false;
  }
  bool any = false;
  for (size_t i = 0; i < count; ++i) {
    if (!parse_number(address.substr(8 * i, 8), &words[i], 16)) {
      return false;
    }
    any |= words[i] != 0;
  }
  const bool mapped =
      count == 4 && words[0] == 0 && words[1] == 0 && words[2] == htonl(0xFFFF) && words[3] != 0;
  char shown[INET6_ADDRSTRLEN] = "";
  const bool v6 = count == 4 && !mapped;
  ::inet_ntop(v6 ? AF_INET6 : AF_INET, mapped ? &words[3] : &words[0], shown, sizeof(shown));
  endpoint->address = !any ? "" : v6 ? "[" + std::string(shown) + "]" : shown;
  return true;
}

std::string lower(std::string_view text) {
  std::string out(text);
  std::transform(out.begin(), out.end(), out.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  return out;
}

Holding one(const char* kind, std::string_view name) {
  return {.kind = kind, .name = std::string(name), .amount = 1};
}

}  // namespace

const char* SocketTables::file_name(Table table) {
  static constexpr const char* kNames[] = {"tcp", "tcp6", "udp", "udp6", "unix", "netlink"};
  return kNames[static_cast<size_t>(table)];
}

void SocketTables::take(Table table, std::string_view line) {
  switch (table) {
    case Table::kTcp:
    case Table::kTcp6:
      return take_inet("tcp", line);
    case Table::kUdp:
    case Table::kUdp6:
      return take_inet("udp", line);
    case Table::kUnix:
      return take_unix(line);
    case Table::kNetlink:
      return take_netlink(line);
  }
}

void SocketTables::take_inet(const char* protocol, std::string_view line) {
  std::string_view words[10];
  for (std::string_view& word : words) {
    word = take_word(&line);
  }
  uint64_t inode = 0;
  Socket socket{.found = true, .is_inet = true, .protocol = protocol};
  if (!parse_number(words[3], &socket.state, 16) || !parse_number(words[9], &inode)) {
    return;
  }
  const auto wanted = wanted_.find(inode);
  if (wanted == wanted_.end() && socket.state != kListening) {
    return;
  }
  Endpoint here;
  Endpoint there;
  if (!parse_endpoint(words[1], &here) || !parse_endpoint(words[2], &there)) {
    return;
  }
  socket.port = here.port;
  socket.peer_port = there.port;
  if (there.port != 0) {
    socket.peer = there.address + ":" + std::to_string(there.port);
  }
  if (socket.state == kListening) {
    listening_.set(here.port);
  }
  if (wanted != wanted_.end()) {
    wanted->second = std::move(socket);
  }
}

void SocketTables::take_unix(std::string_view line) {
  constexpr uint32_t kAccepts = 0x10000;  // __SO_ACCEPTCON
  std::string_view words[7];
  for (std::string_view& word : words) {
    word = take_word(&line);
  }
  uint64_t inode = 0;
  uint32_t flags = 0;
  if (!parse_number(words[6], &inode) || !parse_number(words[3], &flags, 16)) {
    return;
  }
  if (const auto wanted = wanted_.find(inode); wanted != wanted_.end()) {
    line.remove_prefix(std::min<size_t>(line.size(), 1));
    const char* const listening = (flags & kAccepts) != 0 ? "unix listening on " : "unix ";
    wanted->second.found = true;
    wanted->second.protocol = listening + (line.empty() ? "without a name" : std::string(line));
  }
}

void SocketTables::take_netlink(std::string_view line) {
  std::string_view word;
  for (int i = 0; i < 10; ++i) {
    word = take_word(&line);
  }
  uint64_t inode = 0;
  if (const auto wanted = wanted_.find(parse_number(word, &inode) ? inode : 0);
      inode != 0 && wanted != wanted_.end()) {
    wanted->second.found = true;
    wanted->second.protocol = "netlink";
  }
}

std::string SocketTables::name_of(uint64_t inode) const {
  const auto wanted = wanted_.find(inode);
  if (wanted == wanted_.end() || !wanted->second.found) {
    return {};
  }
  const Socket& socket = wanted->second;
  std::string name = socket.protocol;
  if (!socket.is_inet) {
    return name;
  }
  const std::string port = std::to_string(socket.port);
  if (socket.state == kListening) {
    return name + " listening on port " + port;
  }
  const bool accepted =
      listening_.test(socket.port) || (socket.port < kEphemeral && socket.peer_port >= kEphemeral);
  if (!socket.peer.empty() && !(name == "tcp" && accepted)) {
    name += " to " + socket.peer;
  } else if (socket.port != 0) {
    name += " on port " + port;
  }
  const bool is_usual = socket.state == kEstablished || name.starts_with("udp");
  const char* const state = socket.state < kStates.size() ? kStates[socket.state] : "";
  return is_usual || *state == '\0' ? name : name + ", " + state;
}

bool parse_inode(std::string_view target, std::string_view type, uint64_t* inode) {
  if (!target.starts_with(type) || !target.ends_with(']')) {
    return false;
  }
  target.remove_prefix(type.size());
  return target.starts_with(":[") && parse_number(target.substr(2, target.size() - 3), inode);
}

void OpenNames::take(std::string_view target, bool reads, bool writes) {
  uint64_t inode = 0;
  if (parse_inode(target, "socket", &inode)) {
    sockets_.want(inode);
    ++socket_counts_[inode];
    return;
  }
  if (parse_inode(target, "pipe", &inode)) {
    Pipe& pipe = pipes_[inode];
    pipe.is_read |= reads;
    pipe.is_written |= writes;
    ++pipe.count;
    return;
  }
  const bool deleted = target.ends_with(kDeleted);
  const std::string_view path = target.substr(0, target.size() - (deleted ? kDeleted.size() : 0));
  if (path.starts_with("/memfd:")) {
    return tally_.add(one("memfd", path.substr(path.find(':') + 1)));
  }
  if (!path.starts_with('/')) {
    std::string_view name = path;
    const std::string_view type = take_until(&name, ':');
    if (!type.empty() && type != "anon_inode" && parse_inode(path, type, &inode)) {
      return tally_.add(one(type == "pidfd" ? "anon_inode" : "namespace", type));
    }
    name = type == "anon_inode" ? name : path;
    const bool framed = name.starts_with('[') && name.ends_with(']');
    return tally_.add(one("anon_inode", framed ? name.substr(1, name.size() - 2) : name));
  }
  const char* const kind = path.starts_with("/dev/shm/") ? "shared memory"
                           : path.starts_with("/dev/")   ? "device"
                           : deleted                     ? "deleted file"
                                                         : "file";
  tally_.add(one(kind, path));
  folders_.add(one(kind, path.substr(0, path.rfind('/') + 1)));
}

void OpenNames::set_protocol(uint64_t inode, std::string_view protocol) {
  protocols_[inode] = lower(protocol.substr(0, protocol.find('\0')));
}

std::vector<uint64_t> OpenNames::unknown_sockets() const {
  std::vector<uint64_t> inodes;
  for (const auto& entry : socket_counts_) {
    if (sockets_.name_of(entry.first).empty()) {
      inodes.push_back(entry.first);
    }
  }
  return inodes;
}

Holdings OpenNames::ranked() const {
  Tally all = tally_;
  for (const auto& [inode, count] : socket_counts_) {
    std::string name = sockets_.name_of(inode);
    if (name.empty()) {
      const auto protocol = protocols_.find(inode);
      name = (protocol != protocols_.end() ? protocol->second + ", " : "") + "in no table";
    }
    all.add({.kind = "socket", .name = name, .amount = count});
  }
  for (const auto& [inode, pipe] : pipes_) {
    const char* const ends = pipe.is_read && pipe.is_written ? "both ends"
                             : pipe.is_read                  ? "reading end"
                             : pipe.is_written               ? "writing end"
                                                             : "";
    all.add({.kind = "pipe", .name = ends, .amount = pipe.count});
  }
  return all.ranked();
}

}  // namespace host
