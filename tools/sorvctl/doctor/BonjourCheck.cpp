#include <algorithm>
#include <filesystem>
#include <thread>

#include "platform/BonjourDaemon.h"
#include "platform/OwnAddresses.h"
#include "sorvctl/NetworkView.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

using sorvane::BonjourDaemon;
using State = BonjourDaemon::State;

namespace {

constexpr int kPublishedPort = 20221;  // whatever the base port is
constexpr std::chrono::milliseconds kBetweenLooks{20};

bool isInstalled(std::initializer_list<const char*> programs) {
  return std::ranges::any_of(programs, [](const char* program) {
    std::error_code error;
    return std::ranges::any_of(
        std::initializer_list<const char*>{"/usr/sbin/", "/usr/bin/", "/usr/local/sbin/"},
        [&](const char* folder) {
          return std::filesystem::exists(std::string(folder) + program, error);
        });
  });
}

/// Looks for a name server of this host on the network, until the deadline. Returns the name under
/// which it is published, or nothing.
std::optional<std::string> ownPublishedName(Environment::Clock::time_point deadline) {
  const NetworkView& network = NetworkView::current();
  do {
    const auto own = sorvane::interfaceAddresses().value_or(std::vector<sorvane::IPAddress>{});
    for (const NameServer& each : network.servers()) {
      const auto address = sorvane::IPAddress::parse(each.address);
      if (each.port == kPublishedPort && address && std::ranges::count(own, *address) != 0) {
        return each.name;
      }
    }
    std::this_thread::sleep_for(kBetweenLooks);
  } while (Environment::Clock::now() < deadline);
  return std::nullopt;
}

void lookAtPublishing(const Environment& environment, const std::string& hostName, Report& report) {
  if (environment.basePort != kPublishedPort) {
    report.findings.push_back(
        finding(kinds::bonjourPort, {{"port", std::to_string(environment.basePort)}}));
  }
  if (!environment.answer.answered) {
    return;  // what does not run is not published
  }
  const auto published = ownPublishedName(environment.lastMoment);
  if (!published) {
    report.findings.push_back(finding(kinds::bonjourUnseen, {{"name", hostName}}));
    return;
  }
  report.seen += ", and publishes the name server as " + *published;
  if (*published != hostName) {
    report.findings.push_back(
        finding(kinds::bonjourRenamed, {{"published", *published}, {"name", hostName}}));
  }
}

}  // namespace

Report checkBonjour(const Environment& environment) {
  const sorvane::Settings& settings = environment.settings.reading.settings;
  if (settings.localAccessOnly || settings.bonjourDisabled) {
    return {settings.localAccessOnly ? "is off: LocalAccessOnly = YES"
                                     : "is off: BonjourDisabled = YES",
            {},
            {}};
  }
  const BonjourDaemon daemon = sorvane::askBonjourDaemon(environment.lastMoment);
  Report report;
  const auto found = [&report](const FindingKind& kind, Values values = {}) {
    report.findings.push_back(finding(kind, values));
  };
  switch (daemon.state) {
    case State::notBuiltIn:
      report.unseen.push_back({"Avahi", "this sorvctl was built without Bonjour"});
      break;
    case State::noBus:
      if (isInstalled({"dbus-daemon", "dbus-broker"})) {
        found(kinds::dbusStopped);
      } else {
        found(kinds::dbusMissing);
      }
      break;
    case State::notRunning:
      found(isInstalled({"avahi-daemon"}) ? kinds::avahiStopped : kinds::avahiMissing);
      break;
    case State::silent:
      found(kinds::avahiSilent, {{"reason", daemon.reason}});
      break;
    case State::running:
      report.seen = daemon.version + " runs as " + daemon.hostName;
      lookAtPublishing(environment, daemon.hostName, report);
      break;
  }
  return report;
}

}  // namespace sorvctl::doctor
