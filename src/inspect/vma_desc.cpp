#include "inspect/vma_desc.h"

#include <stdio.h>

#include <string_view>

#include "inspect/field_walker.h"
#include "inspect/line_reader.h"
#include "platform/text_field.h"

namespace {

// The conversions of a regular line, with every field set, or 0.
int parse_regular(std::string_view line, vma_desc_t* vma) {
  if (!FieldWalker::can_walk(line)) {
    return 0;
  }
  FieldWalker walker(line);
  if (!walker.wide_hex(&vma->start, '-') || !walker.wide_hex(&vma->end, ' ')) {
    return 0;
  }
  const std::string_view perms = walker.word();
  if (perms.empty() || !walker.blank()) {
    return 0;
  }
  if (walker.skip("00000000 00:00 0 ")) {  // no file
    vma->offset = 0;
    vma->dev_major = vma->dev_minor = vma->inode = 0;
  } else if (!walker.wide_hex(&vma->offset, ' ') || !walker.hex(&vma->dev_major, 8, ':') ||
             !walker.hex(&vma->dev_minor, 8, ' ') || !walker.decimal(&vma->inode)) {
    return 0;
  }
  const std::string_view path = walker.word();
  if (path.empty() && !walker.at_end()) {
    return 0;
  }
  copy_cut(vma->perms, perms);
  copy_cut(vma->path, path);
  vma->size_kb = (vma->end - vma->start) >> 10;
  vma->rss_kb = 0;
  vma->pss_kb = 0;
  return path.empty() ? 7 : 8;
}

// A bound in the format would split a word and change the conversions behind it, so the words go
// into buffers that hold any line.
int parse_any(std::string_view line, vma_desc_t* vma) {
  *vma = {};
  char text[LineReader::kLineSize];
  copy_cut(text, line);
  char perms[LineReader::kLineSize] = "";
  char path[LineReader::kLineSize] = "";
  const int count = sscanf(text, TW_VMA_FORMAT, &vma->start, &vma->end, perms, &vma->offset,
                           &vma->dev_major, &vma->dev_minor, &vma->inode, path);
  copy_cut(vma->perms, perms);
  copy_cut(vma->path, path);
  if (is_vma_header(count)) {
    vma->size_kb = (vma->end - vma->start) >> 10;
  }
  return count;
}

}  // namespace

int parse_vma(std::string_view line, vma_desc_t* vma) {
  const int count = parse_regular(line, vma);
  return count != 0 ? count : parse_any(line, vma);
}

vma_division_t* match_vma_division(vma_division_t* divisions, const vma_desc_t& vma) {
  // The first that matches decides, so a file's ending comes before the device it is on.
  static constexpr struct {
    std::string_view ending;
    VMA_DIVISION_TYPE type;
  } kEndings[] = {
      {".so", VMA_DIVISION_SHARED_OBJECT}, {".oat", VMA_DIVISION_OAT},
      {".odex", VMA_DIVISION_OAT},         {".vdex", VMA_DIVISION_OAT},
      {".art", VMA_DIVISION_OAT},          {".dex", VMA_DIVISION_OAT},
      {".ttf", VMA_DIVISION_FONT},         {".otf", VMA_DIVISION_FONT},
      {".ttc", VMA_DIVISION_FONT},         {".hyb", VMA_DIVISION_RESOURCE},
      {".dat", VMA_DIVISION_RESOURCE},     {".jar", VMA_DIVISION_APK},
      {".apk", VMA_DIVISION_APK},
  };
  static constexpr struct {
    std::string_view beginning;
    VMA_DIVISION_TYPE type;
  } kBeginnings[] = {
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
  if (vma.path[0] == '\0') {
    return &divisions[VMA_DIVISION_UNNAMED];
  }
  const std::string_view path = vma.path;
  // Every ending is a dot and 2 to 4 letters.
  if (path.substr(path.size() - std::min<size_t>(path.size(), 5)).find('.') != path.npos) {
    for (const auto& row : kEndings) {
      if (path.ends_with(row.ending)) {
        return &divisions[row.type];
      }
    }
  }
  for (const auto& row : kBeginnings) {
    // Most names are of other files, which the second byte tells.
    if (vma.path[1] == row.beginning[1] && path.starts_with(row.beginning)) {
      return &divisions[row.type];
    }
  }
  return &divisions[VMA_DIVISION_NAMED];
}
