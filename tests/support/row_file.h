// A table in a text file: a row a line, its fields divided by " | ". Blank lines, and those that
// begin with "#", are left out. In fields \n, \r, \t and \xNN are what they are in C, \\ is a
// backslash, and <c*9> is nine times that byte.
#ifndef TESTS_SUPPORT_ROW_FILE_H_
#define TESTS_SUPPORT_ROW_FILE_H_

#include <fstream>
#include <string>
#include <vector>

inline std::string decoded(const std::string& text) {
  std::string out;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '<' && text.substr(i + 2, 1) == "*") {
      out.append(std::stoul(text.substr(i + 3)), text[i + 1]);
      i = text.find('>', i);
    } else if (text[i] != '\\') {
      out += text[i];
    } else if (const char c = text[++i]; c == 'x') {
      out += static_cast<char>(std::stoi(text.substr(i + 1, 2), nullptr, 16));
      i += 2;
    } else {
      out += c == 'n' ? '\n' : c == 'r' ? '\r' : c == 't' ? '\t' : c;
    }
  }
  return out;
}

inline std::vector<std::vector<std::string>> row_file(const std::string& path) {
  std::vector<std::vector<std::string>> rows;
  std::ifstream file(path);
  for (std::string line; std::getline(file, line);) {
    if (line.empty() || line[0] == '#') continue;
    auto& row = rows.emplace_back();
    for (size_t end = 0; (end = line.find(" | ")) != line.npos; line.erase(0, end + 3)) {
      row.push_back(decoded(line.substr(0, end)));
    }
    row.push_back(decoded(line));
  }
  return rows;
}

#endif  // TESTS_SUPPORT_ROW_FILE_H_
