// Texts that quote what other programs chose (names, paths, what they sent), made safe to show. Any
// thread.
#ifndef HOST_COMMON_ESCAPE_H_
#define HOST_COMMON_ESCAPE_H_

#include <string>
#include <string_view>

namespace host {

// `text` as one line of printable characters: the backslash is doubled, and control characters
// (also those of C1), line and paragraph separators, marks that turn the direction of writing, and
// bytes that are not UTF-8 become \xNN, byte by byte. No two texts come out the same.
std::string escape_text(std::string_view text);

// `text` in double quotes, escaped as above and its own quotes too, so that it stays within them.
std::string quote_text(std::string_view text);

// A text of the library's for a terminal: escaped as above, except for the backslash, the tab at
// its beginning and the line feeds at its end. The library writes no others of its own.
std::string log_text_for_terminal(std::string_view text);

// A text of the library's for anything but a terminal: byte for byte, except that a line feed or
// carriage return within it becomes \xNN. So no name begins a line, and none can pass for a line of
// the program's or set the priority of a log entry, as "<0>" there would (sd-daemon(3)).
std::string log_text_for_pipe(std::string_view text);

}  // namespace host

#endif  // HOST_COMMON_ESCAPE_H_
