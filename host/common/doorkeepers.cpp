#include "host/common/doorkeepers.h"

#include <errno.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <iterator>
#include <system_error>
#include <utility>

namespace host {
namespace {

// With the thread that serves, as many as there are strangers in `scripts/storm flood`.
constexpr size_t kThreads = 3;
constexpr int kAtOnce = 64;
constexpr size_t kMostGuests = 64;  // who wait for take()
// Between two looks at an empty queue: waiting in poll(2) would have each connection wake all.
constexpr std::chrono::milliseconds kNap{1};
constexpr std::chrono::seconds kPatience{1};  // since the last stranger

Sender sender_of(const unique_fd& connection) {
  ucred peer = {0, static_cast<uid_t>(-1), static_cast<gid_t>(-1)};
  socklen_t size = sizeof(peer);
  ::getsockopt(connection.get(), SOL_SOCKET, SO_PEERCRED, &peer, &size);
  return {peer.pid, peer.uid};
}

}  // namespace

Senders Senders::trusted() {
  return {.uids = {0, ::geteuid()}};
}

bool Senders::include(uid_t uid) const {
  return anyone || std::find(uids.begin(), uids.end(), uid) != uids.end();
}

int take_connections(int listener, const Senders& senders, int most, Arrivals* arrivals) {
  for (int i = 0; i < most; ++i) {
    unique_fd fd(::accept4(listener, nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd.ok()) {
      return errno;
    }
    const Sender sender = sender_of(fd);
    if (senders.include(sender.uid)) {
      arrivals->guests.push_back({std::move(fd), sender});
    } else {
      ++arrivals->strangers;
      arrivals->last_stranger = sender;
    }
  }
  return 0;
}

Doorkeepers::~Doorkeepers() {
  is_resting_ = true;
  {
    const std::lock_guard lock(mutex_);
    ended_ = true;
  }
  called_.notify_all();
  for (std::thread& thread : threads_) {
    thread.join();
  }
}

void Doorkeepers::call() {
  try {
    while (threads_.size() < kThreads) {
      threads_.emplace_back([this] { keep(); });
    }
  } catch (const std::system_error&) {
    // Those that there are have to do.
  }
  const std::lock_guard lock(mutex_);
  wanted_ = threads_.size() - working_;
  called_.notify_all();
}

bool Doorkeepers::are_busy() {
  const std::lock_guard lock(mutex_);
  return wanted_ + working_ + arrivals_.guests.size() + arrivals_.strangers != 0;
}

Arrivals Doorkeepers::take() {
  const std::lock_guard lock(mutex_);
  return std::exchange(arrivals_, {});
}

void Doorkeepers::keep() {
  std::unique_lock lock(mutex_);
  for (;;) {
    called_.wait(lock, [this] { return ended_ || wanted_ != 0; });
    if (ended_) {
      return;
    }
    --wanted_;
    ++working_;
    lock.unlock();
    turn_away();
    lock.lock();
    --working_;
  }
}

void Doorkeepers::turn_away() {
  using Clock = std::chrono::steady_clock;
  int error = 0;
  bool is_full = false;
  for (Clock::time_point end = Clock::now() + kPatience;
       !is_resting_ && !is_full && (error == 0 || error == EAGAIN) && Clock::now() < end;) {
    if (error == EAGAIN) {
      std::this_thread::sleep_for(kNap);
    }
    Arrivals come;
    error = take_connections(listener_, senders_, kAtOnce, &come);
    if (come.strangers != 0) {
      end = Clock::now() + kPatience;
    }
    const std::lock_guard lock(mutex_);
    std::move(come.guests.begin(), come.guests.end(), std::back_inserter(arrivals_.guests));
    arrivals_.strangers += come.strangers;
    arrivals_.last_stranger = come.strangers != 0 ? come.last_stranger : arrivals_.last_stranger;
    is_full = arrivals_.guests.size() >= kMostGuests;
  }
}

}  // namespace host
