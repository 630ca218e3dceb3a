#include <fcntl.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>

#include "platform/SystemProcess.h"

namespace sorvane {
namespace {

namespace fs = std::filesystem;

fs::path folderOf(int number) { return fs::path("/proc") / std::to_string(number); }

/// Returns the words behind `name` in a file with a line for each fact.
std::vector<std::string> fact(const fs::path& file, const std::string& name) {
  std::ifstream lines(file);
  std::string line;
  while (std::getline(lines, line)) {
    if (line.starts_with(name)) {
      std::istringstream words(line.substr(name.size()));
      std::vector<std::string> all;
      for (std::string word; words >> word;) {
        all.push_back(word);
      }
      return all;
    }
  }
  return {};
}

template <typename Number>
std::optional<Number> asNumber(const std::string& text) {
  std::istringstream digits(text);
  Number number{};
  return digits >> number ? std::optional(number) : std::nullopt;
}

std::string nameOf(const fs::path& folder) {
  std::ifstream file(folder / "comm");
  std::string name;
  std::getline(file, name);
  return name;
}

std::optional<int> parentOf(const fs::path& folder) {
  const auto parent = fact(folder / "status", "PPid:");
  return parent.empty() ? std::nullopt : asNumber<int>(parent.front());
}

std::optional<SystemProcess::Owner> ownerOf(const fs::path& folder) {
  constexpr std::size_t kEffective = 1;  // real, effective, saved, of the file system
  const auto users = fact(folder / "status", "Uid:");
  const auto groups = fact(folder / "status", "Gid:");
  if (users.size() <= kEffective || groups.size() <= kEffective) {
    return std::nullopt;
  }
  SystemProcess::Owner owner;
  owner.user = asNumber<uid_t>(users[kEffective]).value_or(0);
  owner.group = asNumber<gid_t>(groups[kEffective]).value_or(0);
  for (const std::string& group : fact(folder / "status", "Groups:")) {
    owner.groups.push_back(asNumber<gid_t>(group).value_or(0));
  }
  return owner;
}

/// The system notes how long after its own start a process began.
std::optional<std::chrono::system_clock::time_point> startOf(const fs::path& folder) {
  constexpr int kStartField = 22;  // see proc(5); the name in the second field may hold blanks
  std::ifstream file(folder / "stat");
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  std::istringstream fields(text.substr(std::min(text.rfind(')'), text.size() - 1) + 1));
  std::string field;
  for (int number = 3; number <= kStartField; ++number) {
    fields >> field;
  }
  timespec sinceStart{};
  const auto ticks = asNumber<std::uint64_t>(field);
  const auto perSecond = static_cast<double>(sysconf(_SC_CLK_TCK));
  if (!fields || !ticks || clock_gettime(CLOCK_BOOTTIME, &sinceStart) != 0) {
    return std::nullopt;
  }
  const std::chrono::duration<double> age(static_cast<double>(sinceStart.tv_sec) +
                                          static_cast<double>(sinceStart.tv_nsec) / 1e9 -
                                          static_cast<double>(*ticks) / perSecond);
  return std::chrono::system_clock::now() -
         std::chrono::duration_cast<std::chrono::system_clock::duration>(age);
}

std::optional<std::uint64_t> openFileLimitOf(const fs::path& folder) {
  const auto limits = fact(folder / "limits", "Max open files");
  if (limits.empty()) {
    return std::nullopt;
  }
  return asNumber<std::uint64_t>(limits.front());
}

}  // namespace

std::optional<SystemProcess> systemProcess(int number) {
  const fs::path folder = folderOf(number);
  std::error_code error;
  if (number <= 0 || !fs::exists(folder, error)) {
    return std::nullopt;
  }
  SystemProcess process;
  process.number = number;
  process.name = nameOf(folder);
  process.executable = fs::read_symlink(folder / "exe", error).string();
  process.parent = parentOf(folder);
  process.owner = ownerOf(folder);
  process.started = startOf(folder);
  process.openFileLimit = openFileLimitOf(folder);
  return process;
}

Descriptor openRootOfProcess(int number) {
  return Descriptor(open((folderOf(number) / "root").c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

}  // namespace sorvane
