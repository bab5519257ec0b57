// A process file system made of short rows in a temporary folder, which the readers look at instead
// of /proc while it lives.
#ifndef TESTS_SUPPORT_MADE_TREE_H_
#define TESTS_SUPPORT_MADE_TREE_H_

#include <cstdint>
#include <filesystem>
#include <initializer_list>
#include <string>
#include <string_view>

// One process. An empty `cmdline` leaves the short name as its name; `kgsl` is the size in kB of
// the one area in its map.
struct MadeProcess {
  int pid;
  std::string name = "app";
  int ppid = 1000, threads = 1, fds = 3, fd_size = 64;
  uint64_t rss = 1000, hwm = 1000;
  std::string cmdline = {};
  char state = 'S';
  uint64_t kgsl = 0;
};

// The line in a map of an area of some kB.
std::string made_area(const std::string& name, uint64_t kb);

class MadeTree {
 public:
  MadeTree(std::initializer_list<MadeProcess> processes = {});
  ~MadeTree();
  MadeTree& operator=(MadeTree&&) = delete;  // nor any copy

  // Makes the process, or makes it anew with other numbers.
  void put(const MadeProcess& process);
  // Takes the process (or any other path) away.
  void remove(const std::string& path) { std::filesystem::remove_all(root_ / path); }
  void remove(int pid) { remove(std::to_string(pid)); }
  // A file below the root, its directories made as needed.
  void write(const std::string& path, std::string_view content);
  void link(const std::string& path, const std::string& target);

  const std::filesystem::path& root() const { return root_; }

 private:
  std::filesystem::path root_;
};

#endif  // TESTS_SUPPORT_MADE_TREE_H_
