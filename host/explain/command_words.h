// The command line of a process. Pure.
#ifndef HOST_EXPLAIN_COMMAND_WORDS_H_
#define HOST_EXPLAIN_COMMAND_WORDS_H_

#include <string>
#include <string_view>
#include <vector>

namespace host {

// The words of the text of /proc/PID/cmdline, each of which ends in a NUL. One that has changed its
// title may have a single word with blanks in it.
std::vector<std::string> command_words(std::string_view cmdline);

// What runs, where the program is an interpreter (python, perl, ruby, node, php, lua, the shells,
// java): the script, the module of -m, the archive of -jar or the main class. Empty for any other
// program, and for one that was given no script, as by -c.
std::string script_of(const std::vector<std::string>& words);

}  // namespace host

#endif  // HOST_EXPLAIN_COMMAND_WORDS_H_
