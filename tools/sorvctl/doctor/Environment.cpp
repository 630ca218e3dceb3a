#include "sorvctl/doctor/Environment.h"

#include <algorithm>
#include <utility>

#include "platform/NetConnection.h"
#include "platform/OwnAddresses.h"
#include "platform/ProductVersion.h"
#include "sorvctl/HostInfo.h"

namespace sorvctl::doctor {

using sorvane::NetConnection;
using sorvane::Settings;
using sorvane::SystemProcess;

namespace {

constexpr const char* kServerProgram = "sorvinfo";
constexpr const char* kThisHost = "127.0.0.1";
// What listens at the base port may be anything. No reply to what is asked here is longer.
constexpr std::size_t kLongestReply = std::size_t{64} << 10;

SettingsLook lookAtSettings() {
  const std::string folder = sorvane::executableFolder();
  SettingsLook look;
  look.candidates = Settings::filesFor(folder);
  look.file = settingsFileFor(folder);
  look.reading = Settings::look(look.file.empty() ? nullptr : look.file.c_str(), folder);
  return look;
}

ServerAnswer askServer(int port, std::chrono::milliseconds limit) {
  ServerAnswer answer;
  NetConnection connection;
  connection.setTimeLimits(limit, limit);
  connection.setMaximumReplyBytes(kLongestReply);
  answer.connected = connection.connectToPort(kThisHost, port);
  if (!answer.connected) {
    answer.failure = connection.lastError();
    return answer;
  }
  const auto pong = connection.sendDictionary({{"ping", "ping"}});
  answer.answered = pong && pong->entries().empty();
  if (!answer.answered) {
    answer.failure = connection.lastError().empty() ? "its reply is not that of a name server"
                                                    : connection.lastError();
    return answer;
  }
  if (const auto reply =
          connection.sendDictionary({{"action", "hostInfo"}, {"hostAddress", "localhost"}})) {
    const auto info = hostInfoOf(std::string(reply->text("result").value_or("")));
    answer.version = info ? info->version : "";
  }
  if (const auto reply = connection.sendDictionary({{"action", "continuity"}})) {
    answer.continuity = continuityOf(*reply);
  }
  return answer;
}

/// The process that listens on the port: a name server if there is one among those that do.
std::optional<SystemProcess> listenerOf(const std::optional<sorvane::TcpPortUse>& use) {
  std::optional<SystemProcess> found;
  if (use) {
    for (const sorvane::TcpListener& each : use->listeners) {
      auto process = each.process ? sorvane::systemProcess(*each.process) : std::nullopt;
      if (process && (!found || isNameServer(*process))) {
        found = std::move(process);
      }
    }
  }
  return found;
}

}  // namespace

const SystemProcess* Environment::server() const {
  for (const auto* process : {&listener, &lockHolder}) {
    if (process->has_value() && isNameServer(**process)) {
      return &**process;
    }
  }
  return nullptr;
}

Environment lookAtThisHost(std::optional<int> givenPort, Environment::Clock::time_point deadline) {
  Environment environment;
  const auto time = deadline - Environment::Clock::now();
  environment.deadline = deadline;
  environment.lastMoment = deadline - time / 5;
  environment.now = std::chrono::system_clock::now();
  environment.version = sorvane::productVersion();
  environment.settings = lookAtSettings();
  Settings settings = environment.settings.reading.settings;
  settings.basePort = givenPort.value_or(settings.basePort);
  environment.basePort = settings.basePort;
  Settings::replace(std::move(settings));
  if (environment.settings.reading.fault) {
    return environment;
  }
  environment.lock = sorvane::VNFileLock::look(kServerProgram);
  if (const auto number =
          environment.lock.holder ? environment.lock.holder : environment.lock.written) {
    environment.lockHolder = sorvane::systemProcess(*number);
  }
  environment.portUse = sorvane::useOfTcpPort(environment.basePort);
  environment.listener = listenerOf(environment.portUse);
  // Of a name server over which another process keeps watch, both have the socket open.
  if (environment.listener && environment.lockHolder &&
      environment.listener->parent == environment.lockHolder->number) {
    environment.listener = environment.lockHolder;
  }
  environment.answer =
      askServer(environment.basePort, std::chrono::ceil<std::chrono::milliseconds>(time * 2 / 5));
  environment.ownAddresses = sorvane::interfaceAddresses();
  return environment;
}

std::string settingsFileFor(const std::string& executableFolder) {
  const auto files = Settings::filesFor(executableFolder);
  const auto file = std::find_if(files.begin(), files.end(), &Settings::fileExists);
  return file == files.end() ? "" : *file;
}

bool isNameServer(const SystemProcess& process) {
  const std::string& path = process.executable;
  return (process.name.empty() && path.empty()) || process.name == kServerProgram ||
         path.substr(path.rfind('/') + 1) == kServerProgram;
}

std::string nameOf(const SystemProcess& process) {
  const std::string name = process.name.empty() ? "a program" : process.name;
  return name + " (process " + std::to_string(process.number) + ")";
}

}  // namespace sorvctl::doctor
