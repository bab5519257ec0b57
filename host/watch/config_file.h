// The file of --config: options of a command, one a line, that are taken as if they were given on
// the command line.
#ifndef HOST_WATCH_CONFIG_FILE_H_
#define HOST_WATCH_CONFIG_FILE_H_

#include <CLI/CLI.hpp>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

inline constexpr size_t kConfigMax = 64 << 10;  // bytes

// Adds the options of the command to an empty one.
using AddOptionsFn = std::function<void(CLI::App& command)>;

// Adds --config to `command`. If `*arguments`, which are those of the program, are for this command
// and name a file, the options in it are put before them. What the arguments have takes the place
// of the same in the file, and of what excludes it there. CLI11 checks each line, by the options
// that `add_options` adds. Throws WrongUsage, which names file and line, where one is wrong.
//
// A line is "name = value" or "name", without dashes; it may be empty, or a comment that begins
// with #. A value may stand in double quotes.
void add_config(CLI::App& command, const AddOptionsFn& add_options,
                std::vector<std::string>* arguments);

}  // namespace host

#endif  // HOST_WATCH_CONFIG_FILE_H_
