// What one look found, by key and in the order in which it was found: single figures, and lists,
// which are arrays of objects with the same members. Strings are any bytes. A value that could not
// be read is null with a reason, one that does not exist is null without.
#ifndef HOST_INSPECT_DOCUMENT_H_
#define HOST_INSPECT_DOCUMENT_H_

#include <string>
#include <vector>

#include "host/common/json_line.h"

namespace host {

class Document {
 public:
  // Enters `value`; or null if there is a reason `why` it could not be read, except for a list with
  // something in it, of which that is a part.
  void set(const std::string& key, Json value, const std::string& why = {});

  // Enters what has words of its own: `value` in JSON; in text `lines`, which are escaped, below
  // `title`. Or neither, if there is a reason `why` it could not be read, except as above. It does
  // not count as something that was looked for.
  void attach(const std::string& key, Json value, const std::string& title,
              const std::vector<std::string>& lines, const std::string& why = {});

  // Empty if anything that was looked for was found, else why the first was not.
  std::string why_nothing() const;

  // One JSON object in ASCII and a line feed: `given`, the values, and the reasons as "unreadable".
  // Bytes that are not UTF-8 become U+FFFD.
  std::string json(Json given) const;
  // Aligned lines: the figures, what was attached, then a table for each list. Names are shown as
  // by escape_text(). Rows of a list in which all numbers are 0 are left out unless `zeros` are
  // shown.
  std::string text(bool zeros = true) const;

 private:
  Json values_ = Json::object();
  Json reasons_ = Json::object();
  Json attached_ = Json::object();
  Json attached_reasons_ = Json::object();
  std::string attached_text_;
};

}  // namespace host

#endif  // HOST_INSPECT_DOCUMENT_H_
