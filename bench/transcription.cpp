#include "transcription.h"

#include <dirent.h>
#include <inttypes.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#include <memory>
#include <string>

#include "platform/proc_root.h"
#include "proctable/scan.h"

namespace transcription {
namespace {

constexpr size_t kLineSize = 1024;
constexpr size_t kPathSize = 256;

struct Close {
  void operator()(FILE* file) const { fclose(file); }
  void operator()(DIR* directory) const { closedir(directory); }
};
using File = std::unique_ptr<FILE, Close>;
using Listing = std::unique_ptr<DIR, Close>;

File open_file(int pid, const char* name) {
  char path[kPathSize];
  snprintf(path, sizeof(path), "%s/%d/%s", tw_proc_root(), pid, name);
  return File(fopen(path, "re"));
}

Listing open_listing(int pid, const char* name) {
  char path[kPathSize];
  snprintf(path, sizeof(path), "%s/%d/%s", tw_proc_root(), pid, name);
  return Listing(opendir(path));
}

std::string whole_file(int pid, const char* name) {
  std::string content;
  if (const File file = open_file(pid, name)) {
    char part[1024];
    size_t n;
    while ((n = fread(part, 1, sizeof(part), file.get())) > 0) {
      content.append(part, n);
    }
  }
  return content;
}

// What follows `key` (with its colon) and blanks, or null if `line` is another.
const char* value_of(const char* line, const char* key) {
  const size_t length = strlen(key);
  return strncmp(line, key, length) == 0 ? line + length + strspn(line + length, " \t") : nullptr;
}

void status(int pid, tw_process_desc* desc) {
  const File file = open_file(pid, "status");
  if (!file) {
    return;
  }
  char line[kLineSize];
  while (fgets(line, sizeof(line), file.get()) != nullptr) {
    const char* value;
    if ((value = value_of(line, "Name:")) != nullptr) {
      std::string name = whole_file(pid, "cmdline");
      name.resize(strlen(name.c_str()));
      if (name.empty() || name.size() > 57) {
        name.assign(value, strcspn(value, " \t\n"));
      }
      snprintf(desc->name, sizeof(desc->name), "%s#%d", name.c_str(), pid);
    } else if ((value = value_of(line, "State:")) != nullptr) {
      desc->state = value[0];
    } else if ((value = value_of(line, "Pid:")) != nullptr) {
      if (atoi(value) != pid) {
        return;
      }
    } else if ((value = value_of(line, "PPid:")) != nullptr) {
      desc->ppid = atoi(value);
    } else if ((value = value_of(line, "FDSize:")) != nullptr) {
      desc->fd_size = atoi(value);
    } else if ((value = value_of(line, "VmHWM:")) != nullptr) {
      desc->vm_hwm_kb = static_cast<uint64_t>(atoi(value));
    } else if ((value = value_of(line, "VmRSS:")) != nullptr) {
      desc->vm_rss_kb = static_cast<uint64_t>(atoi(value));
    } else if ((value = value_of(line, "Threads:")) != nullptr) {
      desc->threads = atoi(value);
      return;
    }
  }
}

void count_open_files(int pid, tw_process_desc* desc) {
  const Listing listing = open_listing(pid, "fd");
  if (!listing) {
    return;
  }
  desc->open_files = 0;
  while (const dirent* entry = readdir(listing.get())) {
    desc->open_files += entry->d_type == DT_LNK ? 1 : 0;
  }
}

struct Area {
  uint64_t start, end, offset;
  unsigned dev_major, dev_minor, inode;
  char perms[kLineSize], path[kLineSize];
};

bool parse_header(const char* line, Area* area) {
  area->perms[0] = area->path[0] = '\0';
  const int conversions = sscanf(line, "%" SCNx64 "-%" SCNx64 " %s %" SCNx64 " %x:%x %u %s",
                                 &area->start, &area->end, area->perms, &area->offset,
                                 &area->dev_major, &area->dev_minor, &area->inode, area->path);
  return conversions == 7 || conversions == 8;
}

uint64_t size_kb(const Area& area) {
  return (area.end - area.start) >> 10;
}

VMA_DIVISION_TYPE division_of(const char* path) {
  static constexpr struct {
    const char* text;
    VMA_DIVISION_TYPE type;
  } kEndings[] =
      {
          {".so", VMA_DIVISION_SHARED_OBJECT}, {".oat", VMA_DIVISION_OAT},
          {".odex", VMA_DIVISION_OAT},         {".vdex", VMA_DIVISION_OAT},
          {".art", VMA_DIVISION_OAT},          {".dex", VMA_DIVISION_OAT},
          {".ttf", VMA_DIVISION_FONT},         {".otf", VMA_DIVISION_FONT},
          {".ttc", VMA_DIVISION_FONT},         {".hyb", VMA_DIVISION_RESOURCE},
          {".dat", VMA_DIVISION_RESOURCE},     {".jar", VMA_DIVISION_APK},
          {".apk", VMA_DIVISION_APK},
      },
    kBeginnings[] = {
        {"[anon:dalvik-", VMA_DIVISION_DALVIK},
        {"[anon:scudo:primary]", VMA_DIVISION_SCUDO_PRIMARY},
        {"[anon:scudo:secondary]", VMA_DIVISION_SCUDO_SECONDARY},
        {"[anon:libc_malloc]", VMA_DIVISION_JEMALLOC},
        {"[anon:bionic_alloc_", VMA_DIVISION_BIONIC_ALLOC},
        {"[anon:stack_and_tls:", VMA_DIVISION_STACK},
        {"[stack]", VMA_DIVISION_STACK},
        {"[anon:", VMA_DIVISION_ANON},
        {"/dev/ashmem", VMA_DIVISION_ASHMEM},
        {"/dev/kgsl", VMA_DIVISION_KGSL},
        {"/dmabuf:", VMA_DIVISION_DMABUF},
        {"/dev/", VMA_DIVISION_DEVNODE},
    };
  const size_t length = strlen(path);
  if (length == 0) {
    return VMA_DIVISION_UNNAMED;
  }
  for (const auto& row : kEndings) {
    const size_t ending = strlen(row.text);
    if (length >= ending && strcmp(path + length - ending, row.text) == 0) {
      return row.type;
    }
  }
  for (const auto& row : kBeginnings) {
    if (strncmp(path, row.text, strlen(row.text)) == 0) {
      return row.type;
    }
  }
  return VMA_DIVISION_NAMED;
}

}  // namespace

bool visit(int pid, tw_process_desc* desc) {
  char path[kPathSize];
  snprintf(path, sizeof(path), "%s/%d", tw_proc_root(), pid);
  if (access(path, F_OK) != 0) {
    return false;
  }
  status(pid, desc);
  count_open_files(pid, desc);
  return true;
}

int32_t maps(int pid, tw_process_desc* desc) {
  const File file = open_file(pid, "maps");
  if (!file) {
    return 0;
  }
  uint64_t kb[VMA_DIVISION_COUNT] = {};
  int32_t areas = 0;
  Area area;
  char line[kLineSize];
  for (; fgets(line, sizeof(line), file.get()) != nullptr; ++areas) {
    if (!parse_header(line, &area)) {
      return 0;
    }
    kb[division_of(area.path)] += size_kb(area);
  }
  desc->vss_dalvik_kb = kb[VMA_DIVISION_DALVIK];
  desc->vss_heap_kb =
      kb[VMA_DIVISION_SCUDO_PRIMARY] + kb[VMA_DIVISION_SCUDO_SECONDARY] + kb[VMA_DIVISION_JEMALLOC];
  desc->vss_ashmem_kb = kb[VMA_DIVISION_ASHMEM];
  desc->vss_kgsl_kb = kb[VMA_DIVISION_KGSL];
  desc->vss_dmabuf_kb = kb[VMA_DIVISION_DMABUF];
  return areas;
}

uint64_t smaps(int pid, vma_division_t* divisions) {
  memset(divisions, 0, sizeof(*divisions) * VMA_DIVISION_COUNT);
  const File file = open_file(pid, "smaps");
  if (!file) {
    return 0;
  }
  uint64_t sum_kb = 0, rss_kb = 0, pss_kb = 0;
  bool in_area = false;
  Area area;
  char line[kLineSize];
  while (fgets(line, sizeof(line), file.get()) != nullptr) {
    const char* value;
    if (!in_area) {
      if (!parse_header(line, &area)) {
        return sum_kb;
      }
      in_area = true;
      rss_kb = pss_kb = 0;
    } else if ((value = value_of(line, "Size:")) != nullptr) {
      if (static_cast<uint64_t>(atoi(value)) != size_kb(area)) {
        return sum_kb;
      }
    } else if ((value = value_of(line, "Pss:")) != nullptr) {
      pss_kb = static_cast<uint64_t>(atoi(value));
    } else if ((value = value_of(line, "Rss:")) != nullptr) {
      rss_kb = static_cast<uint64_t>(atoi(value));
      sum_kb += rss_kb;
    } else if (value_of(line, "VmFlags:") != nullptr) {
      vma_division_t& division = divisions[division_of(area.path)];
      division.vss_kb += size_kb(area);
      division.rss_kb += rss_kb;
      division.pss_kb += pss_kb;
      ++division.vma_count;
      in_area = false;
    }
  }
  return sum_kb;
}

void threads(int pid, StringCounter* counter) {
  counter->clear();
  const Listing listing = open_listing(pid, "task");
  if (!listing) {
    return;
  }
  static constexpr const char* kFamilies[][2] = {{"Binder:", "<BINDER THREAD>"},
                                                 {"HwBinder:", "<HWBINDER THREAD>"},
                                                 {"Thread-", "<THREAD>"},
                                                 {"POSIX timer", "<POSIX TIMER>"}};
  while (const dirent* entry = readdir(listing.get())) {
    if (entry->d_type != DT_DIR || entry->d_name[0] < '0' || entry->d_name[0] > '9') {
      continue;
    }
    std::string name = whole_file(pid, ("task/" + std::string(entry->d_name) + "/comm").c_str());
    if (name.empty()) {
      name = "<UNNAMED THREAD>";
    } else {
      name.pop_back();
    }
    for (const auto& [prefix, family] : kFamilies) {
      if (strncmp(name.c_str(), prefix, strlen(prefix)) == 0) {
        name = family;
        break;
      }
    }
    counter->add(name);
  }
}

uint32_t scan() {
  const Listing listing(opendir(tw_proc_root()));
  uint32_t watched = 0;
  while (const dirent* entry = listing ? readdir(listing.get()) : nullptr) {
    if (entry->d_type == DT_DIR && entry->d_name[0] >= '0' && entry->d_name[0] <= '9') {
      watched += strtol(entry->d_name, nullptr, 10) >= TW_FIRST_TRACKED_PID ? 1 : 0;
    }
  }
  return watched;
}

}  // namespace transcription
