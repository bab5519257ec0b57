#include "host/explain/group_place.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <string_view>
#include <utility>

#include "host/common/words.h"

namespace host {
namespace {

constexpr size_t kShortId = 12;

bool is_id(std::string_view text) {
  return text.size() == 64 && text.find_first_not_of("0123456789abcdef") == text.npos;
}

// As systemd-escape(1) writes names: "\x2d" is a hyphen.
std::string unescaped(std::string_view text) {
  std::string out;
  while (!text.empty()) {
    uint8_t byte = 0;
    if (text.starts_with("\\x") && text.size() >= 4 && parse_number(text.substr(2, 2), &byte, 16)) {
      out += static_cast<char>(byte);
      text.remove_prefix(4);
    } else {
      out += text.front();
      text.remove_prefix(1);
    }
  }
  return out;
}

// What stands between `begin` and `end` where that is all of `text`; empty otherwise.
std::string_view between(std::string_view text, std::string_view begin, std::string_view end) {
  if (text.size() <= begin.size() + end.size() || !text.starts_with(begin) ||
      !text.ends_with(end)) {
    return {};
  }
  return text.substr(begin.size(), text.size() - begin.size() - end.size());
}

// "kubepods-burstable-pod<id>.slice", or "pod<id>" below "kubepods" or a class of service.
void take_pod(std::string_view folder, std::string_view parent, GroupPlace* place) {
  constexpr std::string_view kSlice = ".slice";
  constexpr std::string_view kPod = "pod";
  folder.remove_suffix(folder.ends_with(kSlice) ? kSlice.size() : 0);
  if (folder.starts_with("kubepods") && folder.find("-pod") != folder.npos) {
    folder.remove_prefix(folder.find("-pod") + 1);
  } else if (parent != "kubepods" && parent != "burstable" && parent != "besteffort") {
    return;
  }
  if (folder.starts_with(kPod)) {
    place->pod = folder.substr(kPod.size());
    std::replace(place->pod.begin(), place->pod.end(), '_', '-');
  }
}

// A folder of the path, below `parent`.
void take_folder(std::string_view folder, std::string_view parent, GroupPlace* place) {
  static constexpr std::pair<std::string_view, std::string_view> kRuntimes[] = {
      {"docker-", "docker"},
      {"libpod-", "podman"},
      {"cri-containerd-", "containerd"},
      {"crio-", "cri-o"},
      {"nerdctl-", "containerd"}};
  for (const auto& [prefix, runtime] : kRuntimes) {
    std::string_view id = between(folder, prefix, ".scope");
    id = id.empty() ? between(folder, prefix, "") : id;
    if (is_id(id)) {
      place->container = id.substr(0, kShortId);
      place->runtime = runtime;
      return;
    }
  }
  static constexpr std::pair<std::string_view, std::string_view> kNamed[] = {
      {"lxc.payload.", "lxc"}, {"systemd-nspawn@", "nspawn"}, {"machine-", "machine"}};
  for (const auto& [prefix, runtime] : kNamed) {
    std::string_view name = between(folder, prefix,
                                    runtime == "nspawn"    ? ".service"
                                    : runtime == "machine" ? ".scope"
                                                           : "");
    if (!name.empty()) {
      place->container = unescaped(name);
      place->runtime = runtime;
      return;
    }
  }
  if (parent == "lxc") {
    place->container = folder;
    place->runtime = "lxc";
  } else if (is_id(folder)) {
    place->container = folder.substr(0, kShortId);
    place->runtime = parent == "docker" ? "docker" : !place->pod.empty() ? "kubernetes" : "";
  }
  take_pod(folder, parent, place);
  if (folder.ends_with(".service") || folder.ends_with(".scope")) {
    place->unit = unescaped(folder);
  }
}

}  // namespace

GroupPlace place_of(const ControlGroups& groups) {
  GroupPlace place{.path = groups.unified.value_or("")};
  // Where both are used, version 2 may have the processes of version 1 at its root.
  if (groups.systemd && (place.path.empty() || place.path == "/")) {
    place.path = *groups.systemd;
  }
  const std::string memory = groups.memory.value_or("");
  for (std::string_view rest : {std::string_view(place.path), std::string_view(memory)}) {
    std::string_view parent;
    while (!rest.empty() && place.container.empty()) {
      const std::string_view folder = take_until(&rest, '/');
      take_folder(folder, parent, &place);
      parent = folder;
    }
  }
  return place;
}

}  // namespace host
