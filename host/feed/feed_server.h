// The sending end of the feed: one thread, which reads nothing from its readers and waits for none.
// What a reader does not take in time is dropped, counted, and made up for by a full copy. All
// readers together get no more than a share of a processor; beyond it, they wait.
#ifndef HOST_FEED_FEED_SERVER_H_
#define HOST_FEED_FEED_SERVER_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <tuple>
#include <vector>

#include "host/feed/feed_format.h"
#include "host/verdict/told_verdict.h"
#include "platform/unique_fd.h"

namespace host {

class FeedServer {
 public:
  struct Limits {
    size_t readers = 64;
    size_t waiting = 1024;  // messages of one reader, beyond a full copy
    // What the thread may use of a processor: 1 ms in 2 s.
    std::chrono::microseconds share{500};  // in a second
    std::chrono::microseconds burst{1000};
  };

  // `listener` is that of offer_feed(). Throws std::system_error when the means are lacking.
  FeedServer(unique_fd listener, const FeedFigures& figures, Limits limits);
  FeedServer(unique_fd listener, const FeedFigures& figures)
      : FeedServer(std::move(listener), figures, Limits()) {}

  // Serves until stop(). Once, on a thread of its own.
  void run();
  void stop();

  // Any thread; none of them waits for a reader.
  // A change of a state, for all readers.
  void publish(const ToldVerdict& verdict);
  // All that is told now, with the present figures: a copy for all readers.
  void refresh(const FeedFigures& figures, const std::vector<ToldVerdict>& standing);
  // Of the last pass, for the copies from now on.
  void set_figures(const FeedFigures& figures);

 private:
  using Key = std::tuple<int32_t, int64_t, judge::Resource>;

  struct Reader {
    unique_fd fd;  // not ok: to be forgotten
    uint64_t number = 0;
    uint64_t missed = 0;  // messages dropped since it fell behind
    std::deque<FeedText> waiting{};
  };
  // What is to be sent: a message, or where it is null a full copy.
  using Order = FeedText;

  static Key key_of(const ToldVerdict& verdict);
  void order(Order order);
  void rest();
  void accept_readers();
  void give(Reader& reader, const Order& order);
  void send_waiting(Reader& reader);
  static bool send_one(Reader& reader, const std::string& text);
  const std::vector<FeedText>& copy();

  const unique_fd listener_;
  const Limits limits_;
  const unique_fd wake_;
  std::mutex mutex_;
  bool stopped_ = false;
  FeedFigures figures_;                    // guarded, as what follows
  std::map<Key, std::string> standing_{};  // objects
  std::vector<Order> orders_{};
  uint64_t version_ = 1;  // of what a copy has
  // The thread's:
  std::vector<Reader> readers_{};
  std::vector<FeedText> copy_{};
  uint64_t copied_version_ = 0;
  std::chrono::nanoseconds used_{0};  // of the share; shrinks with time
  std::chrono::nanoseconds processor_{0};
  std::chrono::steady_clock::time_point counted_{};
};

}  // namespace host

#endif  // HOST_FEED_FEED_SERVER_H_
