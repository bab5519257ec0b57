// What --where accepts: records by their event, verdicts by their state and resource.
#ifndef HOST_LISTEN_WHERE_H_
#define HOST_LISTEN_WHERE_H_

#include <optional>
#include <string>
#include <vector>

#include "host/common/record.h"
#include "host/verdict/told_verdict.h"
#include "host/watch/alerts.h"

namespace host {

class Where {
 public:
  // All words that there are: the events that send records, then states, then resources.
  static std::vector<std::string> words();

  // Without words, all records are accepted, and of verdicts what is confirmed or urgent and the
  // end of that. With words, records of the events among them, and verdicts of the states and
  // resources among them: of any resource if there is none, and as above if there is no state.
  explicit Where(const std::vector<std::string>& words = {});

  bool names_verdicts() const { return !states_.empty() || !resources_.empty(); }
  // Whether any can be accepted.
  bool wants_records() const { return any_ || !events_.empty(); }
  bool wants_verdicts() const { return any_ || names_verdicts(); }

  bool accepts(const Record& record) const;
  // Each once, in their order. One thread at a time.
  bool accepts(const ToldVerdict& verdict);
  // All that is told now, each as it was told last.
  void stand(const std::vector<ToldVerdict>& standing);

 private:
  const bool any_;
  std::vector<std::string> events_{};
  std::vector<judge::State> states_{};
  std::vector<judge::Resource> resources_{};
  std::optional<Alerts> alerts_{};
};

}  // namespace host

#endif  // HOST_LISTEN_WHERE_H_
