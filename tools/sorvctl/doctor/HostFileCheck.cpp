#include <algorithm>
#include <system_error>

#include "platform/HostAddresses.h"
#include "platform/NameServerHostFile.h"
#include "platform/NetConnection.h"
#include "platform/VNHost.h"
#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

using sorvane::NetConnection;
using sorvane::VNHost;

namespace {

/// The name may mean this host although only the resolver knows that.
bool isThisHost(const std::string& host, Environment::Clock::time_point deadline) {
  const VNHost& own = VNHost::currentHost();
  const auto found = sorvane::addressesOfHost(host, deadline).addresses;
  return std::ranges::any_of(found,
                             [&own](const std::string& each) { return own.isThisHost(each); });
}

std::optional<Finding> lookAtOtherHost(const std::string& path, const std::string& host,
                                       Environment::Clock::time_point deadline) {
  const auto limit =
      std::chrono::ceil<std::chrono::milliseconds>(deadline - Environment::Clock::now());
  NetConnection connection;
  connection.setTimeLimits(limit, limit);
  if (NetConnection::hostFileSearchForNameServer(connection, nullptr)) {
    return finding(kinds::hostFileElsewhere, {{"path", path}, {"host", host}});
  }
  if (isThisHost(host, deadline)) {
    return std::nullopt;
  }
  return finding(kinds::hostFileSilent, {{"path", path},
                                         {"host", host},
                                         {"reason", connection.lastError().empty()
                                                        ? "the reply is not that of a name server"
                                                        : connection.lastError()}});
}

}  // namespace

Report checkHostFile(const Environment& environment) {
  const std::string& path = environment.settings.reading.settings.nameServerHostFile;
  const auto file = sorvane::readNameServerHostFile(path);
  Report report{path + (file.exists ? "" : " is not there"), {}, {}};
  if (file.failure == std::make_error_code(std::errc::permission_denied).message()) {
    report.unseen.push_back({path, file.failure});
  } else if (!file.failure.empty()) {
    report.findings.push_back(
        finding(kinds::hostFileUnreadable, {{"path", path}, {"reason", file.failure}}));
  } else if (file.exists && file.host.empty()) {
    report.findings.push_back(finding(kinds::hostFileEmpty, {{"path", path}}));
  } else if (file.exists) {
    report.seen += " names " + file.host;
    if (!VNHost::currentHost().isThisHost(file.host)) {
      if (auto found = lookAtOtherHost(path, file.host, environment.lastMoment)) {
        report.findings.push_back(std::move(*found));
      }
    }
  }
  return report;
}

}  // namespace sorvctl::doctor
