// The feed of a watch: what it sends to all who connect to its local socket, which is of the kind
// SOCK_SEQPACKET. docs/feed.md describes it for readers in any language.
//
// Each message is one JSON object in ASCII. It has "n", its number on this connection, from 1, and
// "type". Messages that were dropped have numbers too. The types:
//   begin     a full copy begins: "feed", the version; "watch", its pid; "since", when it began;
//             "processes" and "pass_ms" of the last pass
//   standing  a part of the copy: "verdicts", an array of what is told now, each as of
//             verdict_object()
//   complete  the copy is whole, and takes the place of the one before
//   verdict   a change of a state: "verdict", likewise
//   missed    "messages", how many were dropped, since the reader was slow; a copy follows
//   refused   "why", a phrase; the connection ends
// A copy comes first, and again each minute. Readers leave out types and members that they do not
// know. A version adds some; the number rises when one changes or goes.
#ifndef HOST_FEED_FEED_FORMAT_H_
#define HOST_FEED_FEED_FORMAT_H_

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "host/common/json_line.h"
#include "host/verdict/told_verdict.h"

namespace host {

inline constexpr int kFeedVersion = 1;
// No message is longer.
inline constexpr size_t kFeedMessageMax = 64 << 10;

// What a watch is at, beside its verdicts.
struct FeedFigures {
  int32_t watch = 0;  // pid
  std::chrono::system_clock::time_point since{};
  uint32_t processes = 0;
  uint32_t pass_ms = 0;
};

// A message without its number: what follows "{\"n\":17,", to the end.
using FeedText = std::shared_ptr<const std::string>;

FeedText begin_text(const FeedFigures& figures);
// As few messages as hold all of `verdicts`, objects as json_line() writes them.
std::vector<FeedText> standing_texts(const std::vector<std::string>& verdicts);
FeedText complete_text();
FeedText verdict_text(const std::string& verdict);
FeedText missed_text(uint64_t messages);
FeedText refused_text(const std::string& why);

// What a reader knows after the messages so far.
class FeedView {
 public:
  enum class News {
    kNothing,   // a part of a copy, or a type that is not known
    kCopy,      // the copy is whole
    kVerdict,   // change() is new
    kRefused,   // why() says it
    kBadFormat  // it is no message of a version that is known
  };
  News take(std::string_view message);

  const FeedFigures& figures() const { return figures_; }
  const std::vector<ToldVerdict>& standing() const { return standing_; }
  const ToldVerdict& change() const { return change_; }
  const std::string& why() const { return why_; }
  uint64_t missed() const { return missed_; }  // in all

 private:
  News apply(const Json& message);

  FeedFigures figures_{};
  std::vector<ToldVerdict> standing_{};
  std::vector<ToldVerdict> copy_{};  // that is coming
  ToldVerdict change_{};
  std::string why_{};
  uint64_t missed_ = 0;
};

}  // namespace host

#endif  // HOST_FEED_FEED_FORMAT_H_
