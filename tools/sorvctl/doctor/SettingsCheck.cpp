#include <sys/stat.h>

#include <chrono>

#include "platform/PropertyList.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

using std::chrono::system_clock;

namespace {

// The settings are set when the time stamp of the file is, and the name server starts after that.
constexpr std::chrono::seconds kTolerance{1};

std::optional<system_clock::time_point> lastChange(const std::string& file) {
  struct stat status {};
  if (stat(file.c_str(), &status) != 0) {
    return std::nullopt;
  }
  return system_clock::from_time_t(status.st_mtime);
}

std::string seen(const SettingsLook& settings) {
  return settings.file.empty()
             ? "there is no file, so the defaults hold"
             : settings.file + ", settings: " + std::to_string(settings.reading.lines.size());
}

/// When the name server has read its settings: when its program began, which may be later than its
/// process. Nothing if that is not known.
std::optional<system_clock::time_point> lastReading(const std::optional<Continuity>& told,
                                                    const sorvane::SystemProcess& server) {
  return told && isAnswerOf(server, *told) ? told->begun : server.started;
}

/// Compares what the name server has read with what is there.
void compareWithServer(const SettingsLook& settings, const std::optional<Continuity>& told,
                       const sorvane::SystemProcess& server, Report& report) {
  if (server.executable.empty()) {
    report.unseen.push_back(
        {"which settings file the name server reads",
         "only its user or root may ask where the program of " + nameOf(server) + " is"});
  } else {
    const std::string folder = server.executable.substr(0, server.executable.rfind('/'));
    const std::string theirs = settingsFileFor(folder);
    if (theirs != settings.file) {
      report.findings.push_back(
          finding(kinds::settingsOtherFile, {{"executable", server.executable},
                                             {"theirs", theirs.empty() ? "no file" : theirs},
                                             {"ours", settings.fileOrNone()}}));
      return;
    }
  }
  const auto changed = lastChange(settings.file);
  const auto read = lastReading(told, server);
  if (changed && read && *changed > *read + kTolerance) {
    report.findings.push_back(finding(kinds::settingsNewer, {{"file", settings.file}}));
  }
}

}  // namespace

Report checkSettings(const Environment& environment) {
  const SettingsLook& settings = environment.settings;
  const sorvane::Settings& values = settings.reading.settings;
  Report report{seen(settings), {}, {}};
  if (settings.reading.fault) {
    report.findings.push_back(
        finding(kinds::settingsUnusable, {{"fault", *settings.reading.fault}}));
    return report;
  }
  for (const auto& [key, line] : settings.reading.unknown) {
    report.findings.push_back(
        finding(kinds::settingsUnknown, {{"file", settings.file},
                                         {"line", std::to_string(line)},
                                         {"key", sorvane::describeString(key)}}));
  }
  for (const std::string& other : settings.candidates) {
    if (!settings.file.empty() && other != settings.file && sorvane::Settings::fileExists(other)) {
      report.findings.push_back(
          finding(kinds::settingsTwoFiles, {{"file", settings.file}, {"other", other}}));
    }
  }
  if (values.maxUnfinishedBytes / 2 <= values.maxMessageBytes) {
    report.findings.push_back(
        finding(kinds::settingsMemory, {{"bytes", std::to_string(values.maxUnfinishedBytes)}}));
  }
  if (const auto* server = environment.server()) {
    compareWithServer(settings, environment.answer.continuity, *server, report);
  }
  return report;
}

}  // namespace sorvctl::doctor
