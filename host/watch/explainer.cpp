#include "host/watch/explainer.h"

#include <algorithm>
#include <thread>
#include <utility>

namespace host {

Explainer::Explainer(AnswerFn answer, Limits limits)
    : answer_(std::move(answer)), limits_(limits), left_(limits.at_once), counted_(Clock::now()) {}

void Explainer::start() {
  std::thread([this] { run(); }).detach();
}

void Explainer::put(size_t bytes, WriteFn write) {
  add({std::nullopt, bytes, std::move(write)});
}

void Explainer::ask(Question question, size_t bytes, WriteFn write) {
  add({std::move(question), bytes, std::move(write)});
}

void Explainer::add(Item item) {
  const std::lock_guard lock(mutex_);
  if (item.question && (finishing_ || questions_ >= limits_.questions)) {
    item.question.reset();
    ++dropped_;
  }
  questions_ += item.question ? 1 : 0;
  bytes_ += item.bytes;
  queue_.push_back(std::move(item));
  if (bytes_ > limits_.bytes) {
    drop_questions();
  }
  changed_.notify_all();
}

void Explainer::drop_questions() {
  for (Item& item : queue_) {
    dropped_ += item.question ? 1 : 0;
    item.question.reset();
  }
  questions_ = 0;
}

std::optional<Explanation> Explainer::answer(const Question& question) {
  const Clock::time_point begin = Clock::now();
  left_ += limits_.share * (begin - counted_);
  left_ = std::min<std::chrono::duration<double>>(left_, limits_.at_once);
  counted_ = begin;
  if (left_.count() <= 0) {
    const std::lock_guard lock(mutex_);
    ++dropped_;
    return std::nullopt;
  }
  Explanation explanation = answer_(question);
  left_ -= Clock::now() - begin;
  return explanation.is_empty() ? std::nullopt : std::optional(std::move(explanation));
}

void Explainer::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return !queue_.empty(); });
    Item item = std::move(queue_.front());
    queue_.pop_front();
    questions_ -= item.question ? 1 : 0;
    bytes_ -= item.bytes;
    writing_ = true;
    lock.unlock();
    const std::optional<Explanation> explanation =
        item.question ? answer(*item.question) : std::nullopt;
    item.write(explanation ? &*explanation : nullptr);
    lock.lock();
    writing_ = false;
    changed_.notify_all();
  }
}

void Explainer::finish(Clock::time_point deadline) {
  std::unique_lock lock(mutex_);
  finishing_ = true;
  drop_questions();
  changed_.wait_until(lock, deadline, [this] { return queue_.empty() && !writing_; });
}

uint64_t Explainer::dropped() const {
  const std::lock_guard lock(mutex_);
  return dropped_;
}

}  // namespace host
