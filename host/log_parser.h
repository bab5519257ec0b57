// The library's reports as data: the texts of an event, from its blank line and rule to the last
// row of its explanation, become one object; a text that belongs to no event becomes one by itself.
// A name quoted in a text cannot begin another text, whatever it holds, so that no process can
// forge an object, or a member of one.
#ifndef HOST_LOG_PARSER_H_
#define HOST_LOG_PARSER_H_

#include <nlohmann/json.hpp>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// One thread at a time.
class LogParser {
 public:
  using Json = nlohmann::ordered_json;

  // Takes the next text that the library reports, at `time`. Result: the objects that are complete
  // by now, in the order of their beginnings:
  //   time, event, pid, name, before, after   or what the event has of these, or a system's figures
  //   explanation                             its rows, once its headline has come
  // or, for a text of no event, time and text. Blank lines and rules are not told.
  std::vector<Json> take(std::string_view text, const std::string& time);

  // Whether an object waits for rows. Nothing in the log ends a list of them but the next text.
  bool holds() const { return !pending_.empty(); }
  // The waiting objects, complete or not, for when nothing more is to be expected.
  std::vector<Json> flush();

 private:
  struct Pending {
    size_t shape;  // of the event
    Json object;
    bool explained = false;  // its headline has come
    bool complete = false;
  };
  enum class Head { kNone, kBlank, kRule, kName };

  bool take_head(std::string_view text, const std::string& time, std::vector<Json>* done);
  bool take_headline(std::string_view text);
  bool take_row(std::string_view text);
  void release(std::vector<Json>* done);

  Head head_ = Head::kNone;
  size_t named_ = 0;  // the shape that the head's name tells
  // Raised and not given out. All events of one poll are raised before the first is explained.
  std::vector<Pending> pending_;
  size_t explaining_ = kNobody;  // in pending_
  static constexpr size_t kNobody = SIZE_MAX;
};

}  // namespace host

#endif  // HOST_LOG_PARSER_H_
