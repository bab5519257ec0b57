#include "support/made_tree.h"

#include <stdlib.h>

#include <fstream>
#include <sstream>
#include <stdexcept>

#include "taskwarden/taskwarden.h"

namespace fs = std::filesystem;

std::string made_area(const std::string& name, uint64_t kb) {
  std::ostringstream line;
  line << "10000-" << std::hex << 0x10000 + kb * 1024 << " rw-p 00000000 00:00 0    " << name
       << "\n";
  return line.str();
}

MadeTree::MadeTree(std::initializer_list<MadeProcess> processes) {
  std::string name = fs::temp_directory_path() / "taskwarden-XXXXXX";
  if (mkdtemp(name.data()) == nullptr || taskwarden_set_proc_root(name.c_str()) != 0) {
    throw std::runtime_error("no temporary folder at " + name);
  }
  root_ = name;
  for (const MadeProcess& process : processes) put(process);
}

MadeTree::~MadeTree() {
  taskwarden_set_proc_root("/proc");
  fs::remove_all(root_);
}

void MadeTree::put(const MadeProcess& p) {
  remove(p.pid);
  const std::string dir = std::to_string(p.pid);
  std::ostringstream status;
  status << "Name:\t" << p.name << "\nState:\t" << p.state << " (sleeping)\nPid:\t" << dir
         << "\nPPid:\t" << p.ppid << "\nFDSize:\t" << p.fd_size << "\nVmHWM:\t" << p.hwm
         << "\nVmRSS:\t" << p.rss << "\nThreads:\t" << p.threads << "\n";
  write(dir + "/status", status.str());
  write(dir + "/cmdline", p.cmdline);
  write(dir + "/maps", p.kgsl > 0 ? made_area("/dev/kgsl", p.kgsl) : "");
  fs::create_directories(root_ / dir / "fd");
  for (int i = 0; i < p.fds; ++i) link(dir + "/fd/" + std::to_string(i), "socket:[1]");
  for (int i = 0; i < p.threads; ++i) {
    write(dir + "/task/" + std::to_string(p.pid + i) + "/comm", "Thread-1\n");
  }
}

void MadeTree::write(const std::string& path, std::string_view content) {
  fs::create_directories((root_ / path).parent_path());
  std::ofstream(root_ / path) << content;
}

void MadeTree::link(const std::string& path, const std::string& target) {
  fs::create_directories((root_ / path).parent_path());
  fs::create_symlink(target, root_ / path);
}
