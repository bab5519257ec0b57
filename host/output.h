// The program's two outputs. Every call writes its text whole: no other call's gets into the middle
// of it, also when both outputs are the same file. Nothing is buffered. Any thread; a reader that
// does not drain holds up the caller. A pipe without a reader raises SIGPIPE.
#ifndef HOST_OUTPUT_H_
#define HOST_OUTPUT_H_

#include <string>
#include <string_view>

namespace host {

enum class Stream { kOut = 1, kErr = 2 };

// Writes `text` as it is. False when the stream did not take it all. The first failure of standard
// output is said on standard error; later texts are tried all the same.
bool write_text(Stream stream, std::string_view text);

// Writes `line` and a line feed, on a line of its own: begins a new one where the last text left a
// line open. Result as of write_text().
bool write_line(Stream stream, const std::string& line);

// Says "taskwarden: " and `message` on a line of standard error.
void say(const std::string& message);

}  // namespace host

#endif  // HOST_OUTPUT_H_
