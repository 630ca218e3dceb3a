#include <sys/stat.h>

#include <array>
#include <cstdio>

#include "platform/ProductVersion.h"
#include "sorvctl/doctor/Checks.h"
#include "sorvctl/doctor/ServerFiles.h"

namespace sorvctl::doctor {

using std::chrono::system_clock;

namespace {

// A file may come from a host whose clock is a little ahead.
constexpr std::chrono::hours kTolerance{1};

system_clock::time_point buildDay() {
  const sorvane::BuildDate date = sorvane::productBuildDate();
  return std::chrono::sys_days(std::chrono::year(date.year) / date.month / date.day);
}

/// Such as "2026-11-22", in universal time.
std::string dayOf(system_clock::time_point time) {
  const std::chrono::year_month_day day(std::chrono::floor<std::chrono::days>(time));
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u", static_cast<int>(day.year()),
                static_cast<unsigned>(day.month()), static_cast<unsigned>(day.day()));
  return text.data();
}

}  // namespace

Report checkClock(const Environment& environment) {
  const system_clock::time_point now = environment.now;
  const std::string today = dayOf(now);
  Report report{"the clock says " + today, {}, {}};
  // Where the program was built it may have been tomorrow already.
  if (now + std::chrono::days(1) < buildDay()) {
    report.findings.push_back(
        finding(kinds::clockBeforeBuild, {{"now", today}, {"built", dayOf(buildDay())}}));
    return report;  // all files are newer then
  }
  const ServerFiles files = serverFiles(environment.settings.reading.settings);
  for (const std::string& path : {files.log, files.preferences, environment.settings.file}) {
    struct stat status {};
    if (!path.empty() && stat(path.c_str(), &status) == 0 &&
        system_clock::from_time_t(status.st_mtime) > now + kTolerance) {
      report.findings.push_back(
          finding(kinds::clockBehindFiles,
                  {{"now", today},
                   {"path", path},
                   {"written", dayOf(system_clock::from_time_t(status.st_mtime))}}));
    }
  }
  return report;
}

}  // namespace sorvctl::doctor
