#include "host/watch/service_notify.h"

#include <stddef.h>
#include <stdlib.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <charconv>
#include <string_view>

#include "platform/unique_fd.h"

namespace host {
namespace {

// Where nobody waits for signs of life, the line on the state is sent as often.
constexpr int64_t kStatusMs = 30'000;

// A whole number that is more than 0; else 0.
int64_t number_of(const char* variable) {
  const char* const text = ::getenv(variable);
  const std::string_view digits = text != nullptr ? text : "";
  int64_t number = 0;
  const auto parsed = std::from_chars(digits.data(), digits.data() + digits.size(), number);
  const bool whole = parsed.ec == std::errc() && parsed.ptr == digits.data() + digits.size();
  return whole && number > 0 ? number : 0;
}

}  // namespace

ServiceNotify ServiceNotify::from_environment() {
  const char* const socket = ::getenv("NOTIFY_SOCKET");
  const bool is_ours =
      ::getenv("WATCHDOG_PID") == nullptr || number_of("WATCHDOG_PID") == ::getpid();
  return {socket != nullptr ? socket : "", is_ours ? number_of("WATCHDOG_USEC") / 1000 : 0};
}

void ServiceNotify::tell(const taskwarden_progress& progress, const std::string& status,
                         int64_t now_ms) {
  const bool begins = !is_ready_ && progress.is_running != 0;
  const bool is_due = now_ms - told_ms_ >= (watchdog_ms_ != 0 ? watchdog_ms_ / 2 : kStatusMs);
  const bool lives = progress.steps != steps_ || progress.is_paused != 0;
  if (!begins && !(is_ready_ && is_due && lives)) {
    return;
  }
  is_ready_ = true;
  told_ms_ = now_ms;
  steps_ = progress.steps;
  send(std::string(begins ? "READY=1\n" : "") + (watchdog_ms_ != 0 ? "WATCHDOG=1\n" : "") +
       "STATUS=" + status);
}

void ServiceNotify::bear_with_us() const {
  if (watchdog_ms_ != 0) {
    send("WATCHDOG=1");
  }
}

// A manager that does not take it is not waited for.
void ServiceNotify::send(const std::string& text) const {
  sockaddr_un address = {};
  address.sun_family = AF_UNIX;
  const bool is_named = socket_.starts_with('/') || socket_.starts_with('@');
  if (!is_named || socket_.size() >= sizeof(address.sun_path)) {
    return;
  }
  socket_.copy(address.sun_path, socket_.size());
  if (socket_.front() == '@') {
    address.sun_path[0] = '\0';
  }
  const auto size = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + socket_.size());
  const unique_fd fd(::socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  ::sendto(fd.get(), text.data(), text.size(), MSG_NOSIGNAL,
           reinterpret_cast<const sockaddr*>(&address), size);
}

}  // namespace host
