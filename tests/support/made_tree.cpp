#include "support/made_tree.h"

#include <stdlib.h>

#include <fstream>
#include <stdexcept>

#include "taskwarden/taskwarden.h"

namespace fs = std::filesystem;

MadeTree::MadeTree(std::initializer_list<MadeProcess> processes) {
  std::string name = (fs::temp_directory_path() / "taskwarden-XXXXXX").string();
  if (mkdtemp(name.data()) == nullptr || taskwarden_set_proc_root(name.c_str()) != 0) {
    throw std::runtime_error("no temporary folder at " + name);
  }
  root_ = name;
  for (const MadeProcess& process : processes) {
    put(process);
  }
}

MadeTree::~MadeTree() {
  taskwarden_set_proc_root("/proc");
  fs::remove_all(root_);
}

void MadeTree::put(const MadeProcess& p) {
  const std::string dir = std::to_string(p.pid);
  remove(dir);
  const auto row = [](const char* key, auto value) { return key + std::to_string(value) + "\n"; };
  write(dir + "/status", "Name:\t" + p.name + "\nState:\tS (sleeping)\n" + row("Pid:\t", p.pid) +
                             row("PPid:\t", p.ppid) + row("FDSize:\t", p.fd_size) +
                             row("VmHWM:\t", p.hwm) + row("VmRSS:\t", p.rss) +
                             row("Threads:\t", p.threads));
  write(dir + "/cmdline", p.cmdline);
  fs::create_directories(root_ / dir / "fd");
  for (int i = 0; i < p.fds; ++i) {
    link(dir + "/fd/" + std::to_string(i), "socket:[" + std::to_string(i) + "]");
  }
  for (int i = 0; i < p.threads; ++i) {
    write(dir + "/task/" + std::to_string(p.pid + i) + "/comm",
          "Thread-" + std::to_string(i) + "\n");
  }
}

void MadeTree::remove(const std::string& path) {
  fs::remove_all(root_ / path);
}

void MadeTree::write(const std::string& path, std::string_view content) {
  fs::create_directories((root_ / path).parent_path());
  std::ofstream(root_ / path, std::ios::binary) << content;
}

void MadeTree::link(const std::string& path, const std::string& target) {
  fs::create_directories((root_ / path).parent_path());
  fs::create_symlink(target, root_ / path);
}
