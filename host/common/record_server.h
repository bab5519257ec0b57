// The receiving end of the record socket: one poll loop on one thread, many connections, so that no
// client can hold up another by what it sends or leaves unsent. Amid a crowd of strangers other
// threads help to turn them away.
#ifndef HOST_COMMON_RECORD_SERVER_H_
#define HOST_COMMON_RECORD_SERVER_H_

#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/doorkeepers.h"
#include "host/common/record.h"
#include "platform/unique_fd.h"

namespace host {

// The socket on which watchdogs send their records, in the abstract namespace of AF_UNIX.
inline constexpr char kRecordSocket[] = "taskwarden_native_socket";
// The longest abstract name there is, in bytes (unix(7)).
inline constexpr size_t kSocketNameMax = 107;

// A listening socket of the abstract name `name`, close-on-exec and non-blocking. Not ok() on
// failure, with errno: EADDRINUSE when another process has the name, ENAMETOOLONG.
unique_fd listen_on(std::string_view name);

// The descriptor `number`, if it is such a socket of that name. Otherwise it is left as it is, and
// a new socket is made.
unique_fd adopt_listener(int number, std::string_view name);

class RecordServer {
 public:
  // Given each record with its text as it came, NUL excluded. False ends run().
  using RecordFn = std::function<bool(const Record&, std::string_view text, const Sender&)>;
  // Given a line, without a line feed, on what was refused.
  using RefusalFn = std::function<void(const std::string& line)>;

  struct Limits {
    size_t connections = 64;                   // at most so many at once; the oldest gives way
    std::chrono::milliseconds patience{5000};  // from a connection's beginning to its end
    std::chrono::milliseconds quiet{1000};     // between two lines on refusals, which count them
  };

  // `listener` is a non-blocking listening socket, as of listen_on().
  RecordServer(unique_fd listener, Senders senders, Limits limits, RecordFn on_record,
               RefusalFn on_refusal);

  // Serves until `on_record` returns false (result true), or the connections can no longer be
  // waited for (false, once `on_refusal` has been told). Calls both on the calling thread.
  bool run();

  // The listening socket, which stays the server's.
  int listener() const { return listener_.get(); }

  // How much was refused so far. Any thread, as for all that follows.
  struct Refused {
    uint64_t senders = 0;
    uint64_t texts = 0;
  };
  Refused refused() const { return {refused_senders_, refused_texts_}; }
  // Counts on from `before`. Before run().
  void count_from(Refused before);

  // Takes no more connections, which wait in the socket's queue then, and gives those that there
  // are up to `patience` to end.
  void stand_still(std::chrono::milliseconds patience);
  void go_on();

  // How much was refused so far, as a phrase ("records refused: 3 ..."); empty if nothing was.
  std::string refusals() const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Connection {
    unique_fd fd;  // not ok: to be forgotten
    Sender sender;
    Clock::time_point deadline;
    std::string text{};      // what has come of the record
    bool delivered = false;  // the record is done; what is awaited is the end
  };

  void accept_some(Clock::time_point now);
  void rest_from_accepting(int error, Clock::time_point now);
  void admit(Arrivals arrivals, Clock::time_point now);
  void receive(Connection& connection);
  void deliver(Connection& connection);
  void drop(Connection& connection, std::string_view why);
  void refuse(Connection& connection, std::string_view why);
  void count_refusals(uint64_t count, const Sender& last, std::string_view why);
  void tell_refusals(Clock::time_point now);

  const unique_fd listener_;
  const Senders senders_;
  Doorkeepers doorkeepers_{listener_.get(), senders_};
  const Limits limits_;
  const RecordFn on_record_;
  const RefusalFn on_refusal_;
  std::vector<Connection> connections_;  // the oldest first
  Clock::time_point accept_from_{};      // no connection is taken before
  bool accept_failing_ = false;
  std::atomic<bool> stands_still_{false};
  std::atomic<bool> is_served_{false};  // somebody is, after the last round
  bool ended_ = false;
  std::atomic<uint64_t> refused_senders_{0};
  std::atomic<uint64_t> refused_texts_{0};
  uint64_t untold_ = 0;              // refusals that no line was given for
  std::string last_refusal_;         // of these
  Clock::time_point quiet_until_{};  // no line on refusals is given before
};

}  // namespace host

#endif  // HOST_COMMON_RECORD_SERVER_H_
