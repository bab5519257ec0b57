// Tells the service manager how the watch is doing, by the protocol of sd_notify(3): that it is
// ready, a line on its state, and that it still makes progress, without which the manager restarts
// it.
#ifndef HOST_WATCH_SERVICE_NOTIFY_H_
#define HOST_WATCH_SERVICE_NOTIFY_H_

#include <sys/types.h>

#include <cstdint>
#include <string>

#include "taskwarden/taskwarden.h"

namespace host {

class ServiceNotify {
 public:
  // `socket` is a path, or an abstract name behind an "@"; empty: nobody is told anything.
  // `watchdog_ms` is how long the manager waits for a sign of life; 0: it does not.
  ServiceNotify(std::string socket, int64_t watchdog_ms)
      : socket_(std::move(socket)), watchdog_ms_(watchdog_ms) {}
  // What NOTIFY_SOCKET, WATCHDOG_USEC and WATCHDOG_PID say, where these are meant for us.
  static ServiceNotify from_environment();

  // To be called about once a second, `now_ms` being in ms of CLOCK_MONOTONIC. Signs of life are
  // sent at twice the rate that is asked for while the cycle takes steps, rests included, or is
  // paused.
  void tell(const taskwarden_progress& progress, const std::string& status, int64_t now_ms);
  // A sign of life whatever the cycle does: it is about to be freed.
  void bear_with_us() const;

 private:
  void send(const std::string& text) const;

  std::string socket_;
  int64_t watchdog_ms_;
  bool is_ready_ = false;
  uint64_t steps_ = 0;
  int64_t told_ms_ = 0;
};

}  // namespace host

#endif  // HOST_WATCH_SERVICE_NOTIFY_H_
