// Explaining events without holding up the cycle: what is to be written waits in a queue, in its
// order, while a thread looks at the process that an event is about. When there is more to explain
// than there is time, explanations are dropped, and never what they belong to.
#ifndef HOST_WATCH_EXPLAINER_H_
#define HOST_WATCH_EXPLAINER_H_

#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <mutex>
#include <optional>
#include <string>

#include "host/explain/explanation.h"

namespace host {

// Must outlive its thread, which runs until the process ends.
class Explainer {
 public:
  // Gives the answer to a question; what cannot be answered is empty.
  using AnswerFn = std::function<Explanation(const Question&)>;
  // Writes something, with an explanation if there is one.
  using WriteFn = std::function<void(const Explanation*)>;

  struct Limits {
    size_t questions = 16;   // wait at most
    size_t bytes = 4 << 20;  // that wait to be written, beyond which nothing waits for an answer
    double share = 0.05;     // of the time may be spent on answers,
    std::chrono::milliseconds at_once{1000};  // and this much at once
  };

  explicit Explainer(AnswerFn answer) : Explainer(std::move(answer), Limits()) {}
  Explainer(AnswerFn answer, Limits limits);

  // Once. Throws std::system_error when the thread cannot be started.
  void start();

  // Has `write` called when it is its turn; `bytes` is about what it holds. Any thread.
  void put(size_t bytes, WriteFn write);
  // The same with the answer to `question`. Null where there is no answer or no time for one.
  void ask(Question question, size_t bytes, WriteFn write);

  // Answers nothing more, and waits until `deadline` for all to be written. Any thread.
  void finish(std::chrono::steady_clock::time_point deadline);

  // Questions that there was no time for. Any thread.
  uint64_t dropped() const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Item {
    std::optional<Question> question{};
    size_t bytes = 0;
    WriteFn write{};
  };

  void add(Item item);
  void drop_questions();
  void run();
  std::optional<Explanation> answer(const Question& question);

  const AnswerFn answer_;
  const Limits limits_;
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Item> queue_;
  size_t questions_ = 0;  // that wait
  size_t bytes_ = 0;      // likewise
  uint64_t dropped_ = 0;
  bool writing_ = false;
  bool finishing_ = false;
  // What may be spent on answers, and since when more has come to it. The thread's own.
  std::chrono::duration<double> left_;
  Clock::time_point counted_{};
};

}  // namespace host

#endif  // HOST_WATCH_EXPLAINER_H_
