#include "platform/host/ControlGroupLinux.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <string_view>
#include <variant>
#include <vector>

#include "platform/PlainFile.h"

namespace sorvane {
namespace {

constexpr std::size_t kMaximumFileBytes = std::size_t{16} << 20;

enum class Version { one, two };

/// A hierarchy of control groups and where it is mounted.
struct Mount {
  Version version;
  std::string root;   ///< which group of the hierarchy is mounted
  std::string point;  ///< its folder
};

/// Returns an empty text if the file cannot be read.
std::string contentOf(const std::string& path) {
  auto content = readPlainFile(path, kMaximumFileBytes);
  auto* const text = std::get_if<std::string>(&content);
  return text == nullptr ? std::string() : std::move(*text);
}

std::vector<std::string_view> split(std::string_view text, char separator) {
  std::vector<std::string_view> parts;
  for (;;) {
    const std::size_t end = text.find(separator);
    parts.push_back(text.substr(0, end));
    if (end == std::string_view::npos) {
      return parts;
    }
    text.remove_prefix(end + 1);
  }
}

bool holds(const std::vector<std::string_view>& parts, std::string_view part) {
  return std::find(parts.begin(), parts.end(), part) != parts.end();
}

/// Returns the mounts that may have limits on processor time. proc_pid_mountinfo(5) describes the
/// lines: fields 4 and 5 are the root and the mount point, and behind a hyphen stand the type of
/// the file system, its source and its options.
std::vector<Mount> mounts(const std::string& mountInfo) {
  std::vector<Mount> result;
  for (const std::string_view line : split(mountInfo, '\n')) {
    const std::vector<std::string_view> fields = split(line, ' ');
    const auto hyphen = std::find(fields.begin(), fields.end(), "-");
    if (hyphen - fields.begin() < 6 || fields.end() - hyphen < 4) {
      continue;
    }
    const std::string_view type = hyphen[1];
    if (type == "cgroup2" || (type == "cgroup" && holds(split(hyphen[3], ','), "cpu"))) {
      result.push_back({type == "cgroup2" ? Version::two : Version::one, std::string(fields[3]),
                        std::string(fields[4])});
    }
  }
  return result;
}

/// Returns the path of this process's group in the hierarchy: what stands behind "0::" for version
/// 2, and behind the list of controllers with "cpu" for version 1.
std::optional<std::string_view> groupOf(const std::string& groups, Version version) {
  for (const std::string_view line : split(groups, '\n')) {
    const std::vector<std::string_view> fields = split(line, ':');
    if (fields.size() < 3) {
      continue;
    }
    const bool isMeant = version == Version::two ? fields[0] == "0" && fields[1].empty()
                                                 : holds(split(fields[1], ','), "cpu");
    if (isMeant) {
      return line.substr(fields[0].size() + fields[1].size() + 2);
    }
  }
  return std::nullopt;
}

/// Returns the group's path below the mount point, "" for the mounted group itself. That is also
/// the result for a group that lies outside of what is mounted.
std::string_view belowMount(std::string_view group, std::string_view mountedRoot) {
  if (mountedRoot != "/") {
    if (!group.starts_with(mountedRoot)) {
      return {};
    }
    group.remove_prefix(mountedRoot.size());
  }
  const bool isBelow = group.size() > 1 && group.front() == '/' && !group.starts_with("/..");
  return isBelow ? group : std::string_view();
}

std::optional<long long> numberIn(std::string_view text) {
  long long number = 0;
  const auto [end, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  return failure == std::errc() ? std::optional(number) : std::nullopt;
}

/// The cores that the group in this folder allows, the groups above it aside.
std::optional<int> coresOfFolder(const std::string& folder, Version version) {
  std::optional<long long> quota;
  std::optional<long long> period;
  if (version == Version::two) {
    const std::string limit = contentOf(folder + "/cpu.max");  // "max 100000" without a limit
    const std::vector<std::string_view> fields = split(limit, ' ');
    quota = numberIn(fields[0]);
    period = fields.size() > 1 ? numberIn(fields[1]) : std::nullopt;
  } else {
    quota = numberIn(contentOf(folder + "/cpu.cfs_quota_us"));  // -1 without a limit
    period = numberIn(contentOf(folder + "/cpu.cfs_period_us"));
  }
  if (!quota || !period || *quota <= 0 || *period <= 0) {
    return std::nullopt;
  }
  const long long cores = *quota / *period + (*quota % *period == 0 ? 0 : 1);
  return static_cast<int>(std::min<long long>(cores, std::numeric_limits<int>::max()));
}

}  // namespace

std::optional<int> coresOfControlGroup(const std::string& root) {
  const std::string groups = contentOf(root + "/proc/self/cgroup");
  const std::string mountInfo = contentOf(root + "/proc/self/mountinfo");
  std::optional<int> least;
  for (const Mount& mount : mounts(mountInfo)) {
    const auto group = groupOf(groups, mount.version);
    if (!group) {
      continue;
    }
    std::string below(belowMount(*group, mount.root));
    for (;;) {
      const auto cores = coresOfFolder(root + mount.point + below, mount.version);
      if (cores && (!least || *cores < *least)) {
        least = cores;
      }
      if (below.empty()) {
        break;
      }
      below.erase(below.rfind('/'));
    }
  }
  return least;
}

}  // namespace sorvane
