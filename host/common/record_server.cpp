#include "host/common/record_server.h"

#include <errno.h>
#include <fcntl.h>
#include <poll.h>
#include <stddef.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>

#include <algorithm>
#include <thread>
#include <utility>

namespace host {
namespace {

// Connections waiting to be accepted; a sender does not wait for room for long. The kernel has a
// limit of its own (net.core.somaxconn in listen(2)).
constexpr int kBacklog = 4096;
// Connections accepted before those that have sent something are served again.
constexpr int kAcceptsAtOnce = 64;
// How often the clock is looked at while a connection has a deadline or the listener a rest.
constexpr int kTickMs = 100;
// How long to leave the listener alone after it failed, instead of asking again at once and for
// ever (accept(2): EMFILE leaves the connection in the queue).
constexpr std::chrono::milliseconds kAcceptRest{200};

// An abstract name is every byte after a leading NUL, with no terminator (unix(7)).
socklen_t abstract_address(std::string_view name, sockaddr_un* address) {
  *address = {};
  address->sun_family = AF_UNIX;
  std::copy(name.begin(), name.end(), address->sun_path + 1);
  return static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
}

}  // namespace

unique_fd listen_on(std::string_view name) {
  if (name.size() > kSocketNameMax) {
    errno = ENAMETOOLONG;
    return {};
  }
  sockaddr_un address;
  const socklen_t size = abstract_address(name, &address);
  unique_fd fd(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!fd.ok() || ::bind(fd.get(), reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      ::listen(fd.get(), kBacklog) != 0) {
    return {};
  }
  return fd;
}

unique_fd adopt_listener(int number, std::string_view name) {
  int listens = 0;
  socklen_t int_size = sizeof(listens);
  sockaddr_un wanted;
  sockaddr_un address = {};
  const socklen_t wanted_size = abstract_address(name, &wanted);
  socklen_t size = sizeof(address);
  const bool is_one =
      ::getsockopt(number, SOL_SOCKET, SO_ACCEPTCONN, &listens, &int_size) == 0 && listens == 1 &&
      ::getsockname(number, reinterpret_cast<sockaddr*>(&address), &size) == 0 &&
      size == wanted_size && ::memcmp(&address, &wanted, size) == 0 &&
      ::fcntl(number, F_SETFL, O_NONBLOCK) == 0 && ::fcntl(number, F_SETFD, FD_CLOEXEC) == 0;
  return is_one ? unique_fd(number) : listen_on(name);
}

RecordServer::RecordServer(unique_fd listener, Senders senders, Limits limits, RecordFn on_record,
                           RefusalFn on_refusal)
    : listener_(std::move(listener)),
      senders_(std::move(senders)),
      limits_(limits),
      on_record_(std::move(on_record)),
      on_refusal_(std::move(on_refusal)) {}

bool RecordServer::run() {
  std::vector<pollfd> polled;
  while (!ended_) {
    const Clock::time_point now = Clock::now();
    polled.clear();
    for (const Connection& connection : connections_) {
      polled.push_back({connection.fd.get(), POLLIN, 0});
    }
    const bool accept_rests = now < accept_from_ || stands_still_;
    polled.push_back({accept_rests ? -1 : listener_.get(), POLLIN, 0});
    const bool idle =
        connections_.empty() && !accept_rests && untold_ == 0 && !doorkeepers_.are_busy();
    const int wait_ms = idle ? -1 : kTickMs;
    if (::poll(polled.data(), polled.size(), wait_ms) < 0) {
      if (errno == EINTR) {
        continue;
      }
      on_refusal_(std::string("cannot wait for records: ") + ::strerror(errno));
      return false;
    }
    // What has arrived counts before what is late, and both before who comes new.
    for (size_t i = 0; i < connections_.size() && !ended_; ++i) {
      if (polled[i].revents != 0) {
        receive(connections_[i]);
      }
      if (connections_[i].fd.ok() && connections_[i].deadline <= now) {
        drop(connections_[i], "it did not end in time");
      }
    }
    std::erase_if(connections_, [](const Connection& connection) { return !connection.fd.ok(); });
    admit(doorkeepers_.take(), now);
    if (polled.back().revents != 0 && !stands_still_) {
      accept_some(now);
    }
    is_served_ = !connections_.empty() || doorkeepers_.are_busy();
    tell_refusals(now);
  }
  return true;
}

void RecordServer::count_from(Refused before) {
  refused_senders_ = before.senders;
  refused_texts_ = before.texts;
}

void RecordServer::stand_still(std::chrono::milliseconds patience) {
  constexpr std::chrono::milliseconds kRound{10};
  const Clock::time_point end = Clock::now() + patience;
  stands_still_ = true;
  doorkeepers_.set_resting(true);
  do {
    std::this_thread::sleep_for(kRound);
  } while (is_served_ && Clock::now() < end);
}

void RecordServer::go_on() {
  doorkeepers_.set_resting(false);
  stands_still_ = false;
}

std::string RecordServer::refusals() const {
  const uint64_t senders = refused_senders_;
  const uint64_t texts = refused_texts_;
  return senders + texts == 0 ? ""
                              : "records refused: " + std::to_string(senders + texts) + " (" +
                                    std::to_string(senders) + " for their sender, " +
                                    std::to_string(texts) + " for their content)";
}

void RecordServer::accept_some(Clock::time_point now) {
  Arrivals come;
  const int error = take_connections(listener_.get(), senders_, kAcceptsAtOnce, &come);
  if (come.strangers == kAcceptsAtOnce) {
    doorkeepers_.call();
  }
  accept_failing_ = accept_failing_ && come.guests.empty() && come.strangers == 0;
  admit(std::move(come), now);
  if (error != 0 && error != EINTR && error != EAGAIN && error != ECONNABORTED) {
    rest_from_accepting(error, now);
  }
}

void RecordServer::rest_from_accepting(int error, Clock::time_point now) {
  if (!connections_.empty()) {
    // Silent clients may well be what uses up the descriptors.
    drop(connections_.front(), "too many others came after it");
    connections_.erase(connections_.begin());
    return;
  }
  accept_from_ = now + kAcceptRest;
  if (!std::exchange(accept_failing_, true)) {
    on_refusal_(std::string("cannot accept connections: ") + ::strerror(error));
  }
}

void RecordServer::admit(Arrivals arrivals, Clock::time_point now) {
  if (arrivals.strangers != 0) {
    refused_senders_ += arrivals.strangers;
    count_refusals(arrivals.strangers, arrivals.last_stranger, "its user may not send records");
  }
  for (Arrivals::Guest& guest : arrivals.guests) {
    if (ended_) {
      return;
    }
    if (connections_.size() >= limits_.connections) {
      drop(connections_.front(), "too many others came after it");
      connections_.erase(connections_.begin());
    }
    connections_.push_back({std::move(guest.fd), guest.sender, now + limits_.patience});
    receive(connections_.back());
  }
}

// Takes what is there, at most one read of it, so that nobody is served twice before the next.
void RecordServer::receive(Connection& connection) {
  char chunk[kRecordMax + 1];
  const ssize_t n = ::recv(connection.fd.get(), chunk, sizeof(chunk), 0);
  if (n < 0) {
    if (errno != EINTR && errno != EAGAIN) {
      drop(connection, ::strerror(errno));
    }
    return;
  }
  if (n == 0) {
    drop(connection, connection.text.empty() ? "nothing was sent" : "it ended before its NUL");
    return;
  }
  std::string_view rest(chunk, static_cast<size_t>(n));
  if (!connection.delivered) {
    const size_t end = rest.find('\0');
    connection.text += rest.substr(0, end);
    if (connection.text.size() > kRecordMax) {
      refuse(connection, "it is longer than 8191 bytes");
      return;
    }
    if (end == rest.npos) {
      return;
    }
    deliver(connection);
    rest.remove_prefix(end + 1);
  }
  if (!rest.empty() && connection.fd.ok()) {
    refuse(connection, "more follows the record, which was accepted");
  }
}

void RecordServer::deliver(Connection& connection) {
  std::string_view why;
  const std::optional<Record> record = parse_record(connection.text, &why);
  if (!record) {
    refuse(connection, why);
    return;
  }
  connection.delivered = true;
  ended_ = !on_record_(*record, connection.text, connection.sender);
}

// Ends a connection, without a word when its record has been delivered.
void RecordServer::drop(Connection& connection, std::string_view why) {
  if (connection.delivered) {
    connection.fd.reset();
  } else {
    refuse(connection, why);
  }
}

void RecordServer::refuse(Connection& connection, std::string_view why) {
  connection.fd.reset();
  ++refused_texts_;
  count_refusals(1, connection.sender, why);
}

void RecordServer::count_refusals(uint64_t count, const Sender& last, std::string_view why) {
  untold_ += count;
  last_refusal_ = "from pid " + std::to_string(last.pid) + ", uid " + std::to_string(last.uid) +
                  ": " + std::string(why);
  tell_refusals(Clock::now());
}

// Anyone can cause refusals, at any rate, so that not each gets its line.
void RecordServer::tell_refusals(Clock::time_point now) {
  if (untold_ == 0 || now < quiet_until_) {
    return;
  }
  on_refusal_(untold_ == 1
                  ? "refused a record " + last_refusal_
                  : "refused " + std::to_string(untold_) + " records, the last " + last_refusal_);
  untold_ = 0;
  quiet_until_ = now + limits_.quiet;
}

}  // namespace host
