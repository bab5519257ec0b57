// What a descriptor's link points to, as readlink gives it: cut anywhere, not terminated.
#include "inspect/open_files.h"
#include "target.h"

void fuzz(std::string_view text) {
  const std::string_view kind = tw_open_file_kind(text);
  const bool folded =
      text.starts_with("socket:") || text.starts_with("pipe:") || text.starts_with("/dev/ashmem");
  require(folded ? kind == "<SOCKET>" || kind == "<PIPE>" || kind == "<ASHMEM>" : kind == text);
  StringCounter counter;
  for (size_t length = 0; length <= text.size() && length < 256; ++length) {
    counter.add(tw_open_file_kind(text.substr(0, length)));
  }
  int32_t all = 0;
  for (const auto& [name, count] : counter) all += count;
  require(all == static_cast<int32_t>(std::min<size_t>(text.size() + 1, 256)));
}
