// The program's two outputs. Every text is written whole: no other gets into the middle of it, also
// when both outputs are the same file, where all keep their order. A pipe without a reader raises
// SIGPIPE. Any thread.
//
// Nothing is buffered, and a reader that does not drain holds up the caller, until queue_output().
#ifndef HOST_COMMON_OUTPUT_H_
#define HOST_COMMON_OUTPUT_H_

#include <string>
#include <string_view>

#include "host/common/output_channel.h"

namespace host {

enum class Stream { kOut = 1, kErr = 2 };

// Has each output written by a thread from now on (one for both if they are the same file), with
// the caller's signal mask: a reader that stopped costs texts and holds up nobody for longer than
// OutputChannel's patience. Once. Throws std::system_error when a thread cannot be started.
void queue_output();

// Waits for what is being written and what is queued, half a second for either output at the most:
// what is left then is lost with the end of the process. How many lines of standard output that is,
// is said on standard error if that is another file.
void finish_output();

// Writes `text` as it is. False when the stream did not take it all; a queued text counts as taken.
// The first failure of standard output is said on standard error; later texts are tried all the
// same.
bool write_text(Stream stream, std::string_view text, Place place = Place::kBegins);

// Writes `line` and a line feed, on a line of its own: begins a new one where the last text left a
// line open. Result as of write_text().
bool write_line(Stream stream, const std::string& line);

// Says "taskwarden: " and `message` on a line of standard error.
void say(const std::string& message);

// Has these lines, and those on dropped texts, made by `format` instead. Before other threads
// write.
void set_message_format(OutputChannel::FormatFn format);

}  // namespace host

#endif  // HOST_COMMON_OUTPUT_H_
