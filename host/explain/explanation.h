// What the program has to say of a process in which something grew: who it is, and what it holds or
// what there is more of since it was first asked about.
#ifndef HOST_EXPLAIN_EXPLANATION_H_
#define HOST_EXPLAIN_EXPLANATION_H_

#include <chrono>
#include <cstdint>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "host/common/json_line.h"
#include "host/explain/first_looks.h"
#include "host/explain/look.h"
#include "host/explain/look_words.h"

namespace host {

struct Question {
  int64_t pid = 0;
  uint64_t start = 0;  // clock ticks after boot; 0 if not known
  std::string name{};  // as the asker calls it: another name is another program
  Part part = Part::kMemory;
  bool for_verdict = false;
  bool is_first = false;  // the look replaces the first one that there was
};

struct Explanation {
  Look look{};
  Part part = Part::kMemory;
  std::optional<std::chrono::system_clock::time_point> since{};  // of the first look, if before
  Rows rows{};                                                   // what grew since, or what is held

  // Nothing could be read: the process has ended, or does not answer.
  bool is_empty() const { return !look.exists; }

  // Lines without line feeds, escaped; headlines first, and rows that begin with a tab.
  std::vector<std::string> lines() const;
  // Adds "who", and "grew" with "grew_since", or "holds".
  void add_to(Json* object) const;
};

// Explains, and keeps the first looks. Any thread; one look is taken at a time.
class Explanations {
 public:
  struct Options {
    std::string proc_root = "/proc";
    bool no_arguments = false;
    std::chrono::milliseconds patience{100};  // for one look
  };

  explicit Explanations(Options options) : options_(std::move(options)) {}

  // Takes `patience` and a tenth of a second more at the most, and as much again while another
  // thread's look is taken. Empty when the process is no longer that which started at `start`.
  Explanation explain(const Question& question);

 private:
  const Options options_;
  std::mutex mutex_;
  FirstLooks first_looks_;
};

}  // namespace host

#endif  // HOST_EXPLAIN_EXPLANATION_H_
