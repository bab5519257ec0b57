// Threads that help to take the connections of a record socket while strangers crowd in: the queue
// of the socket is short, and one thread gets less of the processors than many strangers do.
#ifndef HOST_COMMON_DOORKEEPERS_H_
#define HOST_COMMON_DOORKEEPERS_H_

#include <sys/types.h>

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "host/common/record.h"
#include "platform/unique_fd.h"

namespace host {

// Whose connections are taken. Who a sender is, the kernel tells.
struct Senders {
  bool anyone = false;
  std::vector<uid_t> uids{};

  // Root and the user we run as.
  static Senders trusted();
  bool include(uid_t uid) const;
};

// Who came through the door.
struct Arrivals {
  struct Guest {
    unique_fd fd;
    Sender sender;
  };
  std::vector<Guest> guests{};  // whose connections are taken
  uint64_t strangers = 0;       // turned away
  Sender last_stranger{};
};

// Takes up to `most` connections from `listener`, which does not block. Returns 0 when there were
// so many, else accept4(2)'s errno, such as EAGAIN.
int take_connections(int listener, const Senders& senders, int most, Arrivals* arrivals);

class Doorkeepers {
 public:
  // Both outlive the object. No thread is started before the first call().
  Doorkeepers(int listener, const Senders& senders) : listener_(listener), senders_(senders) {}
  ~Doorkeepers();
  Doorkeepers& operator=(Doorkeepers&&) = delete;  // nor any copy

  // Has them work until no stranger came for a second, many guests wait for take(), or the
  // connections cannot be taken. Where no threads can be had, nobody helps.
  void call();
  // Has them stop soon, and not begin again before false.
  void set_resting(bool resting) { is_resting_ = resting; }

  // Whether they work, or have let somebody in whom take() has not returned yet.
  bool are_busy();
  Arrivals take();

 private:
  void keep();
  void turn_away();

  const int listener_;
  const Senders& senders_;
  std::atomic<bool> is_resting_{false};
  std::mutex mutex_;
  std::condition_variable called_;
  Arrivals arrivals_;
  bool ended_ = false;
  size_t wanted_ = 0;  // called, and not begun yet
  size_t working_ = 0;
  std::vector<std::thread> threads_;  // of the thread that calls
};

}  // namespace host

#endif  // HOST_COMMON_DOORKEEPERS_H_
