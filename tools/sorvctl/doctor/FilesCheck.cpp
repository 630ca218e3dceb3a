#include <sys/stat.h>
#include <sys/statvfs.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>

#include "sorvctl/doctor/Checks.h"
#include "sorvctl/doctor/ServerFiles.h"

namespace sorvctl::doctor {

namespace {

namespace fs = std::filesystem;

constexpr std::uint64_t kFullBytes = std::uint64_t{64} << 10;
constexpr std::uint64_t kScarceBytes = std::uint64_t{64} << 20;
constexpr std::uint64_t kScarceParts = 20;  // a twentieth of the disk

std::string words(int error) { return std::generic_category().message(error); }

/// The nearest folder above the file that exists.
fs::path folderOf(const std::string& file) {
  fs::path folder = fs::path(file).parent_path();
  std::error_code error;
  while (!fs::exists(folder, error) && folder.has_relative_path()) {
    folder = folder.parent_path();
  }
  return folder;
}

void lookAtRights(const Environment& environment, const ServerFiles& files, Report& report) {
  const sorvane::SystemProcess* const server = environment.server();
  const ServerView view(server, folderOf(files.log).string());
  if (!view.isAllowed()) {
    report.unseen.push_back(
        {"whether " + files.log + " and " + files.preferences + " can be written",
         server != nullptr
             ? "only root and " + view.user() + ", the user of the name server, can tell"
             : "no name server runs, so nobody knows its user"});
    return;
  }
  if (const int error = view.whyNotWritable(files.log)) {
    report.findings.push_back(
        finding(kinds::logUnwritable,
                {{"user", view.user()}, {"path", files.log}, {"reason", words(error)}}));
  }
  if (const int error = view.whyNotReplaceable(files.preferences)) {
    report.findings.push_back(
        finding(kinds::preferencesUnwritable,
                {{"user", view.user()}, {"path", files.preferences}, {"reason", words(error)}}));
  }
}

/// The last bytes of a file; nothing if it cannot be read.
std::optional<std::string> endOf(const std::string& path) {
  constexpr std::streamoff kBytes = 200;
  std::ifstream file(path, std::ios::binary | std::ios::ate);
  if (!file) {
    return std::nullopt;
  }
  const std::streamoff size = file.tellg();
  file.seekg(size - std::min(size, kBytes));
  std::string text(static_cast<std::size_t>(kBytes), '\0');
  file.read(text.data(), kBytes);
  text.resize(static_cast<std::size_t>(file.gcount()));
  return text;
}

void lookAtLength(const Environment& environment, const std::string& log, Report& report) {
  const std::int64_t most = environment.settings.reading.settings.maxLogBytes;
  struct stat status {};
  if (most == 0 || stat(log.c_str(), &status) != 0 || !S_ISREG(status.st_mode)) {
    return;
  }
  // The name server stops before it passes the limit, with a last line that says so.
  const auto end = endOf(log);
  const bool stopped = end && end->find("The log has reached MaxLogBytes.") != std::string::npos;
  if (stopped || status.st_size >= most) {
    report.findings.push_back(finding(
        kinds::logFull, {{"path", log}, {"bytes", std::to_string(std::int64_t{status.st_size})}}));
  } else if (!end) {
    report.unseen.push_back({"whether the log has reached MaxLogBytes",
                             log + " can be read by its user and its group alone"});
  }
}

void lookAtDisk(const std::string& file, Report& report) {
  const std::string folder = folderOf(file).string();
  struct statvfs disk {};
  if (statvfs(folder.c_str(), &disk) != 0) {
    report.unseen.push_back({"the disk of " + file, words(errno)});
    return;
  }
  const std::uint64_t free = std::uint64_t{disk.f_bavail} * disk.f_frsize;
  const std::uint64_t size = std::uint64_t{disk.f_blocks} * disk.f_frsize;
  const bool noMoreFiles = disk.f_files > 0 && disk.f_favail == 0;
  if (size > 0 && (free < kFullBytes || noMoreFiles)) {
    report.findings.push_back(finding(kinds::diskFull, {{"path", folder}}));
  } else if (free < kScarceBytes && free < size / kScarceParts) {
    report.findings.push_back(
        finding(kinds::diskNearlyFull, {{"path", folder}, {"free", std::to_string(free >> 10)}}));
  }
}

/// Looks at each disk once.
void lookAtDisks(const ServerFiles& files, Report& report) {
  std::set<dev_t> seen;
  for (const std::string& file : {files.log, files.preferences}) {
    struct stat status {};
    if (stat(folderOf(file).c_str(), &status) == 0 && seen.insert(status.st_dev).second) {
      lookAtDisk(file, report);
    }
  }
}

}  // namespace

Report checkFiles(const Environment& environment) {
  const ServerFiles files = serverFiles(environment.settings.reading.settings);
  Report report{files.log + " and " + files.preferences, {}, {}};
  lookAtRights(environment, files, report);
  lookAtLength(environment, files.log, report);
  lookAtDisks(files, report);
  return report;
}

}  // namespace sorvctl::doctor
