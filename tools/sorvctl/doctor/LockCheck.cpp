#include "sorvctl/doctor/Checks.h"

namespace sorvctl::doctor {

using State = sorvane::FileLockLook::State;

namespace {

/// True if what listens on the base port is a name server, as far as anybody can tell.
bool serverListens(const Environment& environment) {
  return environment.listener ? isNameServer(*environment.listener) : environment.answer.answered;
}

void lookAtHolder(const Environment& environment, Report& report) {
  const std::string& path = environment.lock.path;
  const auto& holder = environment.lockHolder;
  if (!holder) {
    report.findings.push_back(finding(
        kinds::lockHolderGone,
        {{"path", path}, {"process", std::to_string(environment.lock.holder.value_or(0))}}));
  } else if (!isNameServer(*holder)) {
    report.findings.push_back(
        finding(kinds::lockStranger, {{"path", path}, {"program", nameOf(*holder)}}));
  } else if (environment.listener && isNameServer(*environment.listener) &&
             environment.listener->number != holder->number) {
    report.findings.push_back(finding(
        kinds::lockNotHeld, {{"path", path}, {"port", std::to_string(environment.basePort)}}));
  }
}

std::string seen(const Environment& environment) {
  const std::string& path = environment.lock.path;
  switch (environment.lock.state) {
    case State::held:
      return path + " is held by " +
             (environment.lockHolder ? nameOf(*environment.lockHolder) : "a process that is gone");
    case State::free:
      return path + " is free";
    case State::unusable:
      return path + " cannot be opened";
    case State::unknown:
      break;
  }
  return path;
}

}  // namespace

Report checkLock(const Environment& environment) {
  const sorvane::FileLockLook& lock = environment.lock;
  Report report{seen(environment), {}, {}};
  switch (lock.state) {
    case State::unusable:
      report.findings.push_back(
          finding(kinds::lockUnusable, {{"path", lock.path}, {"reason", lock.reason}}));
      break;
    case State::held:
      lookAtHolder(environment, report);
      break;
    case State::free:
      if (serverListens(environment)) {
        report.findings.push_back(
            finding(kinds::lockNotHeld,
                    {{"path", lock.path}, {"port", std::to_string(environment.basePort)}}));
      }
      break;
    case State::unknown:
      report.unseen.push_back({"who holds " + lock.path,
                               lock.reason.empty() ? "this system does not tell" : lock.reason});
      break;
  }
  return report;
}

}  // namespace sorvctl::doctor
