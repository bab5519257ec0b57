#include "host/common/usage_error.h"

#include <algorithm>
#include <cstddef>
#include <numeric>
#include <optional>
#include <string_view>
#include <utility>
#include <vector>

namespace host {
namespace {

using Names = std::vector<std::string>;

// How many letters must be put in, left out, changed or swapped with the next to make `b` of `a`.
size_t distance(std::string_view a, std::string_view b) {
  std::vector<size_t> before;  // the row of the last letter but one, and of the last
  std::vector<size_t> last;
  std::vector<size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), size_t{0});
  for (size_t i = 1; i <= a.size(); ++i) {
    before = std::exchange(last, row);
    row[0] = i;
    for (size_t j = 1; j <= b.size(); ++j) {
      const bool same = a[i - 1] == b[j - 1];
      row[j] = std::min({last[j] + 1, row[j - 1] + 1, last[j - 1] + (same ? 0 : 1)});
      if (i > 1 && j > 1 && a[i - 1] == b[j - 2] && a[i - 2] == b[j - 1]) {
        row[j] = std::min(row[j], before[j - 2] + 1);
      }
    }
  }
  return row.back();
}

std::string_view without_dashes(std::string_view name) {
  return name.substr(std::min(name.find_first_not_of('-'), name.size()));
}

// The name most like `word`, with dashes or without; empty if none is much like it.
std::string nearest(std::string_view word, const Names& names) {
  word = without_dashes(word);
  size_t least = std::max<size_t>(1, word.size() / 3) + 1;
  std::string found;
  for (const std::string& name : names) {
    const std::string_view bare = without_dashes(name);
    const bool begun = word.size() > 1 && bare.starts_with(word);
    const size_t changes = begun ? 1 : distance(word, bare);
    if (changes < least) {
      least = changes;
      found = name;
    }
  }
  return found;
}

std::string in_quotes(const std::string& text) {
  return '"' + text + '"';
}

Names command_names(const CLI::App& app) {
  Names names;
  for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
    if (!command->get_group().empty()) {
      names.push_back(command->get_name());
    }
  }
  return names;
}

Names option_names(const CLI::App& app) {
  Names names;
  for (const CLI::Option* option : app.get_options()) {
    for (const std::string& name : option->get_lnames()) {
      names.push_back("--" + name);
    }
  }
  return names;
}

bool is_option(const std::string& word) {
  return word.starts_with('-');
}

// The first argument that `app` itself has no use for.
std::optional<std::string> unknown_to(const CLI::App& app) {
  for (const std::string& word : app.remaining()) {
    if (word != "--") {
      return is_option(word) ? word.substr(0, word.find('=')) : word;
    }
  }
  return std::nullopt;
}

std::string unknown_command(const std::string& word, const CLI::App& app) {
  Names names = command_names(app);
  const std::string list = CLI::detail::join(names, ", ");
  const Names options = option_names(app);
  names.insert(names.end(), options.begin(), options.end());
  const std::string meant = nearest(word, names);
  return in_quotes(word) + " is not a command; " +
         (meant.empty() ? "the commands are " + list : "did you mean " + in_quotes(meant) + "?");
}

// `app` may be a command, whose name is then `of`.
std::string unknown_argument(const std::string& word, const CLI::App& app, const std::string& of) {
  const std::string meant = nearest(word, option_names(app));
  const std::string whose = in_quotes(of);
  return in_quotes(word) +
         (!is_option(word) ? " is one argument too many for " + whose
          : of.empty()     ? " is not an option"
                           : " is not an option of " + whose) +
         "; " +
         (meant.empty()
              ? "see " + in_quotes("taskwarden " + of + (of.empty() ? "" : " ") + "--help")
              : "did you mean " + in_quotes(meant) + "?");
}

// CLI11's words in ours.
std::string reworded(const CLI::ParseError& error) {
  const std::string text = error.what();
  const auto between = [&text](const std::string& before, const std::string& after) {
    const size_t begin = text.find(before) + before.size();
    return text.substr(begin, text.find(after, begin) - begin);
  };
  if (error.get_name() == "ConversionError") {  // the values of others are checked before
    return between("Could not convert: ", " = ") + " takes no value";
  }
  if (error.get_name() == "ArgumentMismatch") {
    return between("", ":") +
           (text.ends_with("missing") ? " needs a value" : " may be given only once");
  }
  if (error.get_name() == "ExcludesError") {
    return between("", " ") + " and " + between(" excludes ", " ") + " cannot be given together";
  }
  if (const size_t colon = text.find(": must "); colon != text.npos) {
    return text.substr(0, colon) + text.substr(colon + 1);
  }
  return text;
}

}  // namespace

std::string usage_error(const CLI::App& app, const CLI::ParseError& error) {
  const std::vector<CLI::App*> parsed = app.get_subcommands();
  const CLI::App* const command = parsed.empty() ? nullptr : parsed.front();
  std::optional<std::string> word = unknown_to(app);
  if (word && command != nullptr && command->get_option_no_throw(*word) != nullptr) {
    return in_quotes(*word) + " must come after " + in_quotes(command->get_name());
  }
  if (word && is_option(*word)) {
    return unknown_argument(*word, app, "");
  }
  if (command == nullptr) {
    return word ? unknown_command(*word, app)
                : "a command is missing; the commands are " +
                      CLI::detail::join(command_names(app), ", ");
  }
  word = word ? word : unknown_to(*command);
  return word ? unknown_argument(*word, *command, command->get_name()) : reworded(error);
}

}  // namespace host
