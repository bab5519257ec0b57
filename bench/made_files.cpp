#include "made_files.h"

#include <inttypes.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

#include "taskwarden/taskwarden.h"

namespace fs = std::filesystem;

namespace {

constexpr const char* kNames[] = {
    "",
    "[anon:dalvik-LinearAlloc]",
    "[anon:scudo:primary]",
    "[anon:scudo:secondary]",
    "[anon:libc_malloc]",
    "[anon:bionic_alloc_small_objects]",
    "[anon:stack_and_tls:1234]",
    "[anon:.bss]",
    "/system/framework/arm64/boot.oat",
    "/data/app/com.example.app/oat/arm64/base.odex",
    "/data/app/com.example.app/base.apk",
    "/system/lib64/libc.so",
    "/apex/com.android.runtime/lib64/bionic/libm.so",
    "/system/fonts/Roboto-Regular.ttf",
    "/usr/share/zoneinfo/tzdata.dat",
    "/dev/ashmem/CursorWindow",
    "/dev/kgsl-3d0",
    "/dmabuf:",
    "/dev/binderfs/binder",
    "/system/bin/app_process64",
};

// The lines that follow an area's header (fs/proc/task_mmu.c), for an area of `kb` with one page
// in.
std::string details(uint64_t kb) {
  constexpr const char* kZeroKeys[] = {
      "Shared_Clean", "Shared_Dirty",    "Private_Clean",  "Referenced",    "LazyFree",
      "KSM",          "AnonHugePages",   "ShmemPmdMapped", "FilePmdMapped", "Shared_Hugetlb",
      "Swap",         "Private_Hugetlb", "SwapPss",        "Locked"};
  char line[64];
  std::string text;
  const auto add = [&](const char* key, uint64_t value) {
    snprintf(line, sizeof(line), "%-16s%8" PRIu64 " kB\n", (std::string(key) + ":").c_str(), value);
    text += line;
  };
  add("Size", kb);
  add("KernelPageSize", 4);
  add("MMUPageSize", 4);
  add("Rss", 4);
  add("Pss", 2);
  add("Pss_Dirty", 2);
  add("Private_Dirty", 4);
  add("Anonymous", 4);
  for (const char* key : kZeroKeys) {
    add(key, 0);
  }
  return text + "THPeligible:           0\nVmFlags: rd wr mr mw me ac \n";
}

}  // namespace

MadeFiles::MadeFiles(int areas) {
  std::error_code none;
  const fs::path memory = "/dev/shm";
  root_ = (fs::is_directory(memory, none) ? memory : fs::temp_directory_path()) /
          "taskwarden-bench-XXXXXX";
  if (mkdtemp(root_.data()) == nullptr || taskwarden_set_proc_root(root_.c_str()) != 0) {
    throw std::runtime_error("no folder at " + root_);
  }
  const fs::path process = fs::path(root_) / std::to_string(kPid);
  fs::create_directory(process);
  std::ofstream maps(process / "maps");
  std::ofstream smaps(process / "smaps");
  uint64_t start = 0x7000000000;
  for (int i = 0; i < areas; ++i) {
    const char* name = kNames[static_cast<size_t>(i) % std::size(kNames)];
    const uint64_t kb = 4 * (static_cast<uint64_t>(i) % 61 + 1);
    char head[128];
    const int length = snprintf(
        head, sizeof(head), "%08" PRIx64 "-%08" PRIx64 " rw-p %08x %02x:%02x %u ", start,
        start + kb * 1024, 0U, 0xfdU, static_cast<unsigned>(i % 7), name[0] == '/' ? 1000U : 0U);
    std::string line = head;
    if (name[0] != '\0') {
      line.append(static_cast<size_t>(73 > length ? 73 - length : 0), ' ').append(name);
    }
    line += '\n';
    maps << line;
    smaps << line << details(kb);
    start += kb * 1024;
  }
}

MadeFiles::~MadeFiles() {
  taskwarden_set_proc_root("/proc");
  std::error_code none;
  fs::remove_all(root_, none);
}
