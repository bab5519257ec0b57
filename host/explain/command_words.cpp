#include "host/explain/command_words.h"

#include <algorithm>
#include <cstddef>

#include "host/common/words.h"

namespace host {
namespace {

// What is known of an interpreter's options. Each list has blanks around its words.
struct Interpreter {
  std::string_view name;        // a version may follow
  std::string_view with_value;  // options whose value is the next word
  std::string_view names_it;    // options whose value is what runs
  std::string_view no_script;   // options after which no script follows
};

constexpr Interpreter kInterpreters[] = {
    {"python", " -W -X -Q --check-hash-based-pycs ", " -m ", " -c "},
    {"pypy", " -W -X --jit ", " -m ", " -c "},
    {"perl", " -I ", "", " -e -E "},
    {"ruby", " -I -r -C -E ", "", " -e "},
    {"nodejs", " -r --require --import --loader --experimental-loader -C ", "", " -e -p --eval "},
    {"node", " -r --require --import --loader --experimental-loader -C ", "", " -e -p --eval "},
    {"php-fpm", "", "", ""},
    {"php", " -c -d -z ", " -f ", " -r -S "},
    {"lua", " -l ", "", " -e "},
    {"bash", " -o -O --rcfile --init-file ", "", " -c -s "},
    {"dash", " -o ", "", " -c -s "},
    {"ksh", " -o ", "", " -c -s "},
    {"zsh", " -o ", "", " -c -s "},
    {"sh", " -o ", "", " -c -s "},
    {"java",
     " -cp -classpath --class-path -p --module-path --upgrade-module-path --add-modules"
     " --add-opens --add-exports --add-reads --patch-module --enable-native-access ",
     " -jar -m --module ", ""},
};

// Whether `list` has the option `word`, or the last of short ones that were given as one: "-lc".
bool has(std::string_view list, const std::string& word) {
  constexpr size_t kClusterMost = 4;
  const bool is_cluster = word.size() > 2 && word.size() <= kClusterMost && word[1] != '-';
  return list.find(" " + word + " ") != list.npos ||
         (is_cluster && list.find(std::string(" -") + word.back() + " ") != list.npos);
}

// A name of a program is an interpreter's if nothing but a version follows: "python3.11".
bool is_called(std::string_view program, std::string_view name) {
  return program.starts_with(name) &&
         program.find_first_not_of("0123456789.-", name.size()) == program.npos;
}

}  // namespace

std::vector<std::string> command_words(std::string_view cmdline) {
  std::vector<std::string> words;
  while (!cmdline.empty()) {
    words.emplace_back(take_until(&cmdline, '\0'));
  }
  return words;
}

std::string script_of(const std::vector<std::string>& words) {
  if (words.empty()) {
    return {};
  }
  std::string_view program = words[0];
  program.remove_prefix(program.rfind('/') + 1);
  program.remove_prefix(program.starts_with('-') ? 1 : 0);  // of a login shell
  const auto* const known =
      std::find_if(std::begin(kInterpreters), std::end(kInterpreters),
                   [&](const Interpreter& each) { return is_called(program, each.name); });
  if (known == std::end(kInterpreters)) {
    return {};
  }
  for (size_t i = 1; i < words.size(); ++i) {
    const std::string& word = words[i];
    const bool is_option = word.size() > 1 && word[0] == '-';
    if (!is_option || word == "--") {
      const size_t at = word == "--" ? i + 1 : i;
      return at < words.size() ? words[at] : std::string();
    }
    if (has(known->names_it, word)) {
      return i + 1 < words.size() ? words[i + 1] : std::string();
    }
    if (has(known->no_script, word)) {
      return {};
    }
    i += has(known->with_value, word) ? 1 : 0;
  }
  return {};
}

}  // namespace host
