#include "host/watch/config_file.h"

#include <string.h>

#include <algorithm>
#include <optional>

#include "host/common/file_text.h"
#include "host/common/usage_error.h"
#include "host/common/words.h"

namespace host {
namespace {

constexpr char kConfig[] = "--config";
constexpr std::string_view kBlank = " \t\r";

struct Line {
  size_t number = 0;     // from 1
  std::string name{};    // with dashes
  std::string option{};  // as an argument
};

std::string_view trimmed(std::string_view text) {
  text.remove_prefix(std::min(text.find_first_not_of(kBlank), text.size()));
  return text.substr(0, text.find_last_not_of(kBlank) + 1);
}

std::string_view unquoted(std::string_view value) {
  const bool is_quoted = value.size() >= 2 && value.starts_with('"') && value.ends_with('"');
  return is_quoted ? value.substr(1, value.size() - 2) : value;
}

WrongUsage wrong(const std::string& path, size_t line, const std::string& why) {
  return WrongUsage(path + ":" + std::to_string(line) + ": " + why);
}

std::string read_config(const std::string& path) {
  const FileText file = read_file(path, kConfigMax + 1);
  if (file.error != 0 && file.error != ENODATA) {
    throw WrongUsage(std::string(kConfig) + ": \"" + path + "\": " + ::strerror(file.error));
  }
  if (file.text.size() > kConfigMax) {
    throw WrongUsage(std::string(kConfig) + ": \"" + path + "\" is longer than 64 KiB");
  }
  return file.text;
}

std::vector<Line> parse_config(const std::string& path, std::string_view text) {
  std::vector<Line> lines;
  size_t number = 0;
  each_line_of(text, [&](std::string_view line) {
    ++number;
    line = trimmed(line);
    if (line.empty() || line.starts_with('#')) {
      return;
    }
    const auto is_control = [](char c) { return c != '\t' && static_cast<unsigned char>(c) < ' '; };
    if (std::any_of(line.begin(), line.end(), is_control)) {
      throw wrong(path, number, "control characters cannot be given here");
    }
    const size_t equals = line.find('=');
    const std::string name(trimmed(line.substr(0, equals)));
    // Those end the program, or would read on elsewhere.
    if (name.empty() || name.starts_with('-') || name == "help" || name == "config") {
      throw wrong(path, number, "\"" + name + "\" cannot be given here");
    }
    Line one{number, "--" + name, "--" + name};
    if (equals != line.npos) {
      one.option.append("=").append(unquoted(trimmed(line.substr(equals + 1))));
    }
    lines.push_back(std::move(one));
  });
  return lines;
}

// What is wrong with the first lines, as with a command line; nothing if they are right.
std::optional<std::string> error_in(const std::string& command, const AddOptionsFn& add_options,
                                    const std::vector<Line>& lines, size_t count) {
  CLI::App app;
  CLI::App& checked = *app.add_subcommand(command);
  add_options(checked);
  std::vector<std::string> arguments;
  for (size_t i = count; i > 0; --i) {
    arguments.push_back(lines[i - 1].option);
  }
  arguments.push_back(command);
  try {
    app.parse(std::move(arguments));
  } catch (const CLI::ParseError& error) {
    return usage_error(app, error);
  }
  return std::nullopt;
}

// Throws for the first line with which they are wrong.
void check(const std::string& path, const std::string& command, const AddOptionsFn& add_options,
           const std::vector<Line>& lines) {
  size_t right = 0;
  size_t wrong_at = lines.size();
  std::optional<std::string> why = error_in(command, add_options, lines, wrong_at);
  if (!why) {
    return;
  }
  while (wrong_at - right > 1) {
    const size_t middle = right + (wrong_at - right) / 2;
    if (auto found = error_in(command, add_options, lines, middle)) {
      why = std::move(found);
      wrong_at = middle;
    } else {
      right = middle;
    }
  }
  throw wrong(path, lines[wrong_at - 1].number, *why);
}

// The file that the arguments name; empty if none.
std::string path_in(const std::vector<std::string>& arguments) {
  const std::string is = std::string(kConfig) + "=";
  for (size_t i = 1; i < arguments.size(); ++i) {
    if (arguments[i].starts_with(is)) {
      return arguments[i].substr(is.size());
    }
    if (arguments[i] == kConfig && i + 1 < arguments.size()) {
      return arguments[i + 1];
    }
  }
  return "";
}

bool is_given(const std::string& name, const std::vector<std::string>& arguments) {
  return std::any_of(arguments.begin(), arguments.end(), [&name](const std::string& argument) {
    return argument == name || argument.starts_with(name + "=");
  });
}

}  // namespace

void add_config(CLI::App& command, const AddOptionsFn& add_options,
                std::vector<std::string>* arguments) {
  command
      .add_option(kConfig,
                  "Take options from FILE, a line each: \"name = value\"\n"
                  "or \"name\", without the dashes. Those of the command\n"
                  "line take the place of those in the file")
      ->option_text("FILE")
      ->type_size(1);
  const std::string path =
      arguments->empty() || arguments->front() != command.get_name() ? "" : path_in(*arguments);
  if (path.empty()) {
    return;
  }
  const std::vector<Line> lines = parse_config(path, read_config(path));
  check(path, command.get_name(), add_options, lines);
  std::vector<std::string> taken;
  for (const Line& line : lines) {
    bool gives_way = is_given(line.name, *arguments);
    for (const CLI::Option* other : command.get_option(line.name)->get_excludes()) {
      gives_way = gives_way || is_given(other->get_name(), *arguments);
    }
    if (!gives_way) {
      taken.push_back(line.option);
    }
  }
  arguments->insert(arguments->begin() + 1, taken.begin(), taken.end());
}

}  // namespace host
