#include "host/feed/feed_server.h"

#include <errno.h>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>

#include <algorithm>
#include <system_error>
#include <thread>
#include <utility>

#include "host/verdict/verdict_object.h"

namespace host {
namespace {

using std::chrono::nanoseconds;
using std::chrono::steady_clock;

// Done at once, before the processor is given back.
constexpr size_t kSendsAtOnce = 32;
constexpr size_t kAcceptsAtOnce = 8;
// How long to leave the listener alone where it fails.
constexpr int kTickMs = 200;

nanoseconds processor_time() {
  timespec used = {};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &used);
  return std::chrono::seconds(used.tv_sec) + nanoseconds(used.tv_nsec);
}

}  // namespace

FeedServer::FeedServer(unique_fd listener, const FeedFigures& figures, Limits limits)
    : listener_(std::move(listener)),
      limits_(limits),
      wake_(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)),
      figures_(figures) {
  if (!wake_.ok()) {
    throw std::system_error(errno, std::generic_category(), "no event descriptor");
  }
}

FeedServer::Key FeedServer::key_of(const ToldVerdict& verdict) {
  return {verdict.pid, verdict.start, verdict.resource};
}

void FeedServer::publish(const ToldVerdict& verdict) {
  std::string object = json_line(verdict_object(verdict));
  if (object.size() > kFeedMessageMax / 2) {
    ToldVerdict shorter = verdict;
    shorter.explanation.clear();
    shorter.details = {};
    object = json_line(verdict_object(shorter));
  }
  FeedText text = verdict_text(object);
  const std::lock_guard lock(mutex_);
  if (verdict.state == judge::State::kEnded) {
    standing_.erase(key_of(verdict));
  } else {
    standing_[key_of(verdict)] = std::move(object);
  }
  ++version_;
  order(std::move(text));
}

void FeedServer::refresh(const FeedFigures& figures, const std::vector<ToldVerdict>& standing) {
  std::map<Key, std::string> objects;
  for (const ToldVerdict& verdict : standing) {
    objects[key_of(verdict)] = json_line(verdict_object(verdict));
  }
  const std::lock_guard lock(mutex_);
  figures_ = figures;
  standing_ = std::move(objects);
  ++version_;
  order(nullptr);
}

void FeedServer::set_figures(const FeedFigures& figures) {
  const std::lock_guard lock(mutex_);
  figures_ = figures;
  ++version_;
}

void FeedServer::order(Order order) {
  orders_.push_back(std::move(order));
  ::eventfd_write(wake_.get(), 1);
}

void FeedServer::stop() {
  const std::lock_guard lock(mutex_);
  stopped_ = true;
  ::eventfd_write(wake_.get(), 1);
}

void FeedServer::run() {
  counted_ = steady_clock::now();
  processor_ = processor_time();
  bool accepting = true;
  for (;;) {
    rest();
    std::vector<pollfd> polled;
    for (const Reader& reader : readers_) {
      const bool waits = !reader.waiting.empty() || reader.missed != 0;
      polled.push_back({reader.fd.get(), static_cast<short>(waits ? POLLOUT : 0), 0});
    }
    polled.push_back({wake_.get(), POLLIN, 0});
    polled.push_back({accepting ? listener_.get() : -1, POLLIN, 0});
    ::poll(polled.data(), polled.size(), accepting ? -1 : kTickMs);
    accepting = true;
    std::vector<Order> orders;
    {
      eventfd_t count = 0;
      ::eventfd_read(wake_.get(), &count);
      const std::lock_guard lock(mutex_);
      if (stopped_) {
        return;
      }
      orders.swap(orders_);
    }
    for (size_t i = 0; i < readers_.size(); ++i) {
      if ((polled[i].revents & (POLLERR | POLLHUP | POLLNVAL)) != 0) {
        readers_[i].fd.reset();
      }
    }
    std::erase_if(readers_, [](const Reader& reader) { return !reader.fd.ok(); });
    for (const Order& one : orders) {
      for (Reader& reader : readers_) {
        give(reader, one);
      }
    }
    if (polled.back().revents != 0) {
      const size_t before = readers_.size();
      accept_readers();
      accepting = readers_.size() != before || errno == EAGAIN;
    }
    for (Reader& reader : readers_) {
      send_waiting(reader);
    }
  }
}

// Sleeps while more than the share is used.
void FeedServer::rest() {
  const steady_clock::time_point now = steady_clock::now();
  const nanoseconds processor = processor_time();
  const auto grown = (now - counted_) * limits_.share.count() / 1000000;
  used_ = std::max(nanoseconds(0), used_ - std::chrono::duration_cast<nanoseconds>(grown)) +
          (processor - processor_);
  processor_ = processor;
  counted_ = now;
  if (used_ > limits_.burst) {
    std::this_thread::sleep_for((used_ - limits_.burst / 2) * 1000000 / limits_.share.count());
  }
}

void FeedServer::accept_readers() {
  for (size_t i = 0; i < kAcceptsAtOnce; ++i) {
    unique_fd fd(::accept4(listener_.get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
    if (!fd.ok()) {
      return;
    }
    // What it would send gets an error there, instead of memory here.
    ::shutdown(fd.get(), SHUT_RD);
    Reader reader{std::move(fd)};
    if (readers_.size() >= limits_.readers) {
      send_one(reader, *refused_text("there are " + std::to_string(readers_.size()) +
                                     " readers, and no more can be"));
      continue;
    }
    give(reader, nullptr);
    readers_.push_back(std::move(reader));
  }
  errno = EAGAIN;
}

// Queues a message or a copy, or counts it where the reader has fallen behind.
void FeedServer::give(Reader& reader, const Order& order) {
  if (reader.missed != 0) {
    ++reader.missed;
  } else if (reader.waiting.size() > limits_.waiting + copy_.size()) {
    reader.missed = reader.waiting.size() + 1;
    reader.waiting.clear();
  } else if (order != nullptr) {
    reader.waiting.push_back(order);
  } else {
    const std::vector<FeedText>& texts = copy();
    reader.waiting.insert(reader.waiting.end(), texts.begin(), texts.end());
  }
}

void FeedServer::send_waiting(Reader& reader) {
  for (size_t i = 0; i < kSendsAtOnce && reader.fd.ok(); ++i) {
    if (reader.waiting.empty() && reader.missed != 0) {
      const uint64_t missed = reader.missed;
      reader.number += missed;
      if (!send_one(reader, *missed_text(missed))) {
        reader.number -= missed;
        return;
      }
      reader.missed = 0;
      give(reader, nullptr);
    }
    if (reader.waiting.empty() || !send_one(reader, *reader.waiting.front())) {
      return;
    }
    reader.waiting.pop_front();
  }
}

// False when the reader has no room now, or is gone.
bool FeedServer::send_one(Reader& reader, const std::string& text) {
  std::string head = "{\"n\":" + std::to_string(reader.number + 1) + ",";
  iovec parts[] = {{head.data(), head.size()}, {const_cast<char*>(text.data()), text.size()}};
  msghdr message = {};
  message.msg_iov = parts;
  message.msg_iovlen = 2;
  if (::sendmsg(reader.fd.get(), &message, MSG_NOSIGNAL | MSG_DONTWAIT) < 0) {
    if (errno != EAGAIN && errno != EINTR) {
      reader.fd.reset();
    }
    return false;
  }
  ++reader.number;
  return true;
}

// What a reader gets first, made anew only where it is another.
const std::vector<FeedText>& FeedServer::copy() {
  const std::lock_guard lock(mutex_);
  if (copied_version_ != version_) {
    copied_version_ = version_;
    std::vector<std::string> objects;
    for (const auto& [key, object] : standing_) {
      objects.push_back(object);
    }
    copy_ = {begin_text(figures_)};
    for (FeedText& text : standing_texts(objects)) {
      copy_.push_back(std::move(text));
    }
    copy_.push_back(complete_text());
  }
  return copy_;
}

}  // namespace host
