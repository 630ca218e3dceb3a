// "upgrade": lets the running name server go on as the program that is installed now.
#include <signal.h>

#include <CLI/CLI.hpp>
#include <cerrno>
#include <chrono>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <system_error>
#include <thread>

#include "platform/SystemProcess.h"
#include "platform/VNFileLock.h"
#include "platform/VNHost.h"
#include "sorvctl/Command.h"
#include "sorvctl/Continuity.h"
#include "sorvctl/Failure.h"
#include "sorvctl/HostInfo.h"
#include "sorvctl/Output.h"
#include "sorvctl/Progress.h"
#include "sorvctl/Seconds.h"
#include "sorvctl/Session.h"
#include "sorvctl/doctor/Environment.h"

namespace sorvctl {

namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr double kSeconds = 15;
constexpr milliseconds kBetweenQuestions{50};
constexpr milliseconds kLastQuestion{5000};  // the limit of the one after the upgrade

constexpr const char* kLock = "sorvinfo";

/// The process that has the lock of this host's name server. Throws a Failure when none has it, or
/// none that is a name server.
sorvane::SystemProcess lockHolder() {
  using State = sorvane::FileLockLook::State;
  const sorvane::FileLockLook look = sorvane::VNFileLock::look(kLock);
  if (look.state == State::free) {
    throw Failure(Status::notReached,
                  "no name server runs on this host: nobody holds " + look.path);
  }
  if (!look.reason.empty()) {
    throw Failure(Status::saidNo, look.path + ": " + look.reason);
  }
  // Where the system does not tell who holds it, the file itself names the process.
  const std::optional<int> number = look.holder ? look.holder : look.written;
  if (!number) {
    throw Failure(Status::saidNo, "this system does not tell who holds " + look.path);
  }
  const auto process = sorvane::systemProcess(*number);
  if (!process) {
    throw Failure(Status::notReached, "no name server runs on this host: " + look.path +
                                          " names process " + std::to_string(*number) +
                                          ", which is gone");
  }
  if (!doctor::isNameServer(*process)) {
    throw Failure(Status::saidNo, look.path + " is held by " + doctor::nameOf(*process) +
                                      ", which is no name server");
  }
  return *process;
}

/// An upgrade keeps the lock, so a process that does not hold it any more has ended.
bool hasEnded(int process) {
  const sorvane::FileLockLook look = sorvane::VNFileLock::look(kLock);
  return look.state == sorvane::FileLockLook::State::unknown ? !sorvane::systemProcess(process)
                                                             : look.holder != process;
}

void signalUpgrade(const sorvane::SystemProcess& process) {
  if (kill(process.number, SIGUSR2) == 0) {
    return;
  }
  const int reason = errno;
  const std::string name = doctor::nameOf(process);
  if (reason == EPERM) {
    throw Failure(Status::saidNo,
                  name + " is another user's: upgrade it as root" +
                      (process.owner ? " or as " + sorvane::userName(process.owner->user) : ""));
  }
  throw Failure(Status::saidNo, name + ": " + std::generic_category().message(reason));
}

/// The version of the name server, which is on this host.
std::string versionOf(Session& session) {
  const auto info =
      hostInfoOf(session.askForResult({{"action", "hostInfo"}, {"hostAddress", "localhost"}}));
  return info ? info->version : "";
}

class Upgrade {
 public:
  explicit Upgrade(Session& session)
      : session_(session), process_(lockHolder()), before_(ask()), from_(versionOf(session)) {}

  /// Throws a Failure when the name server goes on as it was, or is gone, or when the time is over.
  void run() {
    // A moment before the signal once more: the process may have ended, and its number with it.
    process_ = lockHolder();
    requireAnswerOfProcess();
    signalUpgrade(process_);
    const Progress progress("waiting for the upgrade of " + doctor::nameOf(process_));
    while (!look()) {
      if (Clock::now() >= *session_.end()) {
        throw Failure(Status::saidNo, "the time is over: " + state_);
      }
      std::this_thread::sleep_for(kBetweenQuestions);
    }
  }

  void print() {
    session_.endBy(Clock::now() + kLastQuestion);
    const std::string to = versionOf(session_);
    printLine(
        session_,
        {{"process", process_.number}, {"from", from_}, {"to", to}, {"upgrades", after_.upgrades}},
        to == from_ ? "upgraded in place, still version " + to + ": the settings were read anew"
                    : "upgraded from " + from_ + " to " + to);
  }

 private:
  Continuity ask() {
    const auto told = readContinuity(session_);
    if (!told) {
      throw Failure(Status::needsRestart, doctor::nameOf(process_) +
                                              " is of a release that cannot be upgraded in place: "
                                              "restart it");
    }
    return *told;
  }

  /// What another process has answered does not tell what a signal would do to this one.
  void requireAnswerOfProcess() const {
    if (!isAnswerOf(process_, before_)) {
      throw Failure(Status::saidNo, "port " + std::to_string(session_.basePort()) +
                                        " is served by process " + std::to_string(before_.process) +
                                        ", and not by " + doctor::nameOf(process_) +
                                        ", which holds the lock of this host");
    }
  }

  /// Returns whether another program goes on. Throws a Failure when none will.
  bool look() {
    try {
      after_ = ask();
    } catch (const Failure& failure) {
      if (failure.status() != Status::notReached) {
        throw;
      }
      state_ = doctor::nameOf(process_) + " does not answer: " + failure.what();
      if (hasEnded(process_.number)) {
        throw Failure(Status::saidNo, doctor::nameOf(process_) + " has ended");
      }
      return false;
    }
    if (after_.instance != before_.instance) {
      throw Failure(Status::saidNo, doctor::nameOf(process_) +
                                        " has ended, and another name server has begun anew");
    }
    if (after_.attempts > before_.attempts && after_.upgrades > before_.upgrades) {
      return true;
    }
    if (after_.attempts > before_.attempts && !after_.refused.empty()) {
      throw Failure(Status::saidNo, "not upgraded: " + after_.refused);
    }
    state_ = doctor::nameOf(process_) + (after_.attempts > before_.attempts
                                             ? " has begun the upgrade and not finished it"
                                             : " has not begun the upgrade");
    return false;
  }

  Session& session_;
  sorvane::SystemProcess process_;
  const Continuity before_;
  const std::string from_;
  Continuity after_;
  std::string state_;
};

int upgrade(Session& session, double seconds) {
  if (!session.host().empty() && !sorvane::VNHost::currentHost().isThisHost(session.host())) {
    throw Failure(
        Status::wrongUsage,
        "a name server is upgraded on the host on which it runs: do it on " + session.host());
  }
  session.endBy(Clock::now() + inMilliseconds(seconds));
  Upgrade attempt(session);
  attempt.run();
  attempt.print();
  return 0;
}

Handler declareUpgrade(CLI::App& command) {
  auto seconds = std::make_shared<double>(kSeconds);
  command
      .add_option("--timeout", *seconds,
                  "Seconds to wait for the new program (default: 15); if the time is over, the "
                  "status is 1")
      ->check(CLI::Range(0.1, 86400.0));
  return [seconds](Session& session) { return upgrade(session, *seconds); };
}

}  // namespace

std::vector<Command> commands::upgrade() {
  return {
      {"upgrade", "Let the name server of this host go on as the program that is installed now",
       "sorvctl upgrade --timeout 30", &declareUpgrade},
  };
}

}  // namespace sorvctl
