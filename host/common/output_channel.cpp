#include "host/common/output_channel.h"

#include <errno.h>
#include <poll.h>
#include <unistd.h>

#include <algorithm>
#include <string_view>
#include <thread>
#include <utility>

namespace host {
namespace {

size_t cost(const OutputText& text) {
  return sizeof(text) + text.bytes.size();
}

uint64_t lines_of(const OutputText& text) {
  const auto feeds = std::count(text.bytes.begin(), text.bytes.end(), '\n');
  return std::max<uint64_t>(1, static_cast<uint64_t>(feeds));
}

// Returns 0, or the error that kept the rest of `text` from being written.
int write_whole(int fd, std::string_view text) {
  while (!text.empty()) {
    const ssize_t n = ::write(fd, text.data(), text.size());
    if (n >= 0) {
      text.remove_prefix(static_cast<size_t>(n));
    } else if (errno == EAGAIN) {
      // Another program made the pipe or terminal that we share non-blocking.
      pollfd room = {fd, POLLOUT, 0};
      ::poll(&room, 1, -1);
    } else if (errno != EINTR) {
      return errno;
    }
  }
  return 0;
}

}  // namespace

bool OutputChannel::put(OutputText text) {
  std::unique_lock lock(mutex_);
  if (!queueing_) {
    changed_.wait(lock, [this] { return !writing_; });
    return write(lock, text);
  }
  const size_t bytes = cost(text);
  const auto has_room = [&] { return queue_.empty() || queued_bytes_ + bytes <= limits_.bytes; };
  if (!has_room() && patience_ > Clock::duration::zero()) {
    const Clock::time_point begin = Clock::now();
    changed_.wait_until(lock, begin + patience_, has_room);
    patience_ -= Clock::now() - begin;
  }
  while (!has_room()) {
    drop_oldest();
  }
  if (dropped_lines_ != 0 && queue_.empty() && text.place == Place::kContinues) {
    dropped_lines_ += lines_of(text);
    return true;
  }
  queued_bytes_ += bytes;
  queue_.push_back(std::move(text));
  changed_.notify_all();
  return true;
}

void OutputChannel::start_queue() {
  {
    const std::lock_guard lock(mutex_);
    queueing_ = true;
  }
  std::thread([this] { write_queued(); }).detach();
}

uint64_t OutputChannel::unwritten(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  changed_.wait_until(lock, deadline,
                      [this] { return queue_.empty() && dropped_lines_ == 0 && !writing_; });
  uint64_t lines = dropped_lines_ + (writing_ ? 1 : 0);
  for (const OutputText& text : queue_) {
    lines += lines_of(text);
  }
  return lines;
}

bool OutputChannel::write(std::unique_lock<std::mutex>& lock, const OutputText& text) {
  writing_ = true;
  lock.unlock();
  const std::string feed = text.own_line && line_open_ ? "\n" : "";
  const int error = write_whole(text.fd, feed + text.bytes);
  if (!text.bytes.empty()) {
    line_open_ = error != 0 || text.bytes.back() != '\n';
  }
  lock.lock();
  writing_ = false;
  if (queue_.empty()) {
    patience_ = limits_.patience;
  }
  changed_.notify_all();
  if (error != 0) {
    lock.unlock();
    on_failure_(text.fd, error);
    lock.lock();
  }
  return error == 0;
}

void OutputChannel::write_queued() {
  std::unique_lock lock(mutex_);
  while (true) {
    changed_.wait(lock, [this] { return !writing_ && (!queue_.empty() || dropped_lines_ != 0); });
    OutputText text;
    if (dropped_lines_ != 0) {
      text = {dropped_fd_,
              format_(std::to_string(std::exchange(dropped_lines_, 0)) +
                      " lines of the log were dropped while the output was stalled") +
                  "\n",
              Place::kBegins, true};
    } else {
      text = std::move(queue_.front());
      queued_bytes_ -= cost(text);
      queue_.pop_front();
    }
    write(lock, text);
  }
}

// With all that continues it.
void OutputChannel::drop_oldest() {
  do {
    const OutputText& oldest = queue_.front();
    dropped_lines_ += lines_of(oldest);
    dropped_fd_ = oldest.fd;
    queued_bytes_ -= cost(oldest);
    queue_.pop_front();
  } while (!queue_.empty() && queue_.front().place == Place::kContinues);
}

}  // namespace host
