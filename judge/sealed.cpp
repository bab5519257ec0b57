#include "judge/sealed.h"

namespace judge {
namespace {

constexpr std::string_view kMark = "twjudge\n";
constexpr size_t kHeader = kMark.size() + sizeof(uint32_t) + 2 * sizeof(uint64_t);

// FNV-1a: no change of one byte goes unseen.
uint64_t checksum(std::string_view bytes) {
  uint64_t sum = 0xCBF29CE484222325;
  for (const char byte : bytes) {
    sum = (sum ^ static_cast<uint8_t>(byte)) * 0x100000001B3;
  }
  return sum;
}

}  // namespace

std::string seal(uint32_t version, std::string_view content) {
  std::string bytes(kMark);
  bytes.reserve(kHeader + content.size());
  Writer write(&bytes);
  write(version);
  write(uint64_t{content.size()});
  write(checksum(content));
  return bytes.append(content);
}

bool is_sealed(std::string_view bytes) {
  return bytes.starts_with(kMark);
}

const char* unseal(uint32_t version, std::string_view sealed, std::string_view* content) {
  if (!is_sealed(sealed)) {
    return "it is something else";
  }
  uint32_t found = 0;
  uint64_t size = 0;
  uint64_t sum = 0;
  Reader read(sealed.substr(kMark.size()));
  read(found);
  read(size);
  read(sum);
  if (read.failed()) {
    return "it is cut off";
  }
  if (found != version) {
    return "it is of another version";
  }
  *content = sealed.substr(kHeader);
  if (content->size() != size) {
    return content->size() < size ? "it is cut off" : "there is more behind it";
  }
  return checksum(*content) == sum ? nullptr : "it is damaged";
}

}  // namespace judge
