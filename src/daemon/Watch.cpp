#include "daemon/Watch.h"

#include <errno.h>
#include <signal.h>
#include <sys/wait.h>
#include <syslog.h>

#include <algorithm>
#include <optional>
#include <system_error>
#include <thread>
#include <utility>

#include "daemon/ProcessSetup.h"
#include "platform/Console.h"
#include "platform/Descriptor.h"
#include "platform/EndProcess.h"
#include "platform/SharedDescriptors.h"
#include "platform/SurvivingSockets.h"
#include "platform/WithoutInterruption.h"

namespace sorvane {
namespace {

struct SignalName {
  int number;
  const char* name;
};

constexpr SignalName kSignalNames[] = {
    {SIGHUP, "SIGHUP"},   {SIGINT, "SIGINT"},   {SIGQUIT, "SIGQUIT"},     {SIGILL, "SIGILL"},
    {SIGTRAP, "SIGTRAP"}, {SIGABRT, "SIGABRT"}, {SIGBUS, "SIGBUS"},       {SIGFPE, "SIGFPE"},
    {SIGKILL, "SIGKILL"}, {SIGSEGV, "SIGSEGV"}, {SIGPIPE, "SIGPIPE"},     {SIGALRM, "SIGALRM"},
    {SIGTERM, "SIGTERM"}, {SIGSYS, "SIGSYS"},   {SIGXCPU, "SIGXCPU"},     {SIGXFSZ, "SIGXFSZ"},
    {SIGUSR1, "SIGUSR1"}, {SIGUSR2, "SIGUSR2"}, {SIGVTALRM, "SIGVTALRM"}, {SIGPROF, "SIGPROF"}};

/// The signals by which people, terminals and service managers end a program.
bool isWishToEnd(int signal) { return signal == SIGTERM || signal == SIGINT || signal == SIGHUP; }

/// The signals of the watching process: those that it takes are blocked, to be waited for.
class WatchedSignals {
 public:
  WatchedSignals() {
    sigemptyset(&taken_);
    for (const int number : {SIGCHLD, SIGTERM, SIGUSR2, SIGHUP, SIGINT}) {
      sigaddset(&taken_, number);
    }
    take();
  }

  void take() {
    pthread_sigmask(SIG_BLOCK, &taken_, &before_);
    // Where SIGCHLD is ignored, the system does not tell how a child has ended.
    struct sigaction usual {};
    usual.sa_handler = SIG_DFL;
    sigaction(SIGCHLD, &usual, &childEndBefore_);
  }

  /// Puts everything back as it was.
  void putBack() const {
    sigaction(SIGCHLD, &childEndBefore_, nullptr);
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

  /// In the serving process: puts everything back, but for SIGUSR2. That one may have come before
  /// there is somebody who takes it, and must not end the process.
  void putBackForServing() const {
    sigset_t mask = before_;
    sigaddset(&mask, SIGUSR2);
    sigaction(SIGCHLD, &childEndBefore_, nullptr);
    pthread_sigmask(SIG_SETMASK, &mask, nullptr);
  }

  /// Before another program takes the place of this one: the same, and what the serving process has
  /// ignored is ignored.
  void putBackForNextProgram() const {
    ignoreHangupAndInterrupt();
    putBackForServing();
  }

  /// Waits for the end of the child and passes on to it what comes for it. Returns the status.
  [[nodiscard]] int waitForEndOf(pid_t child) const {
    for (;;) {
      int number = 0;
      if (sigwait(&taken_, &number) != 0) {
        continue;
      }
      int status = 0;
      if (number == SIGTERM) {
        kill(child, SIGKILL);
        withoutInterruption([=] { return waitpid(child, nullptr, 0); });
        return SIGTERM;  // as the status of a process that this signal has ended
      }
      if (number != SIGCHLD) {
        kill(child, number);
      }
      // Of several signals, that of a death may come last.
      if (waitpid(child, &status, WNOHANG) == child) {
        return status;
      }
    }
  }

 private:
  sigset_t taken_{};
  sigset_t before_{};
  struct sigaction childEndBefore_ {};
};

/// Writes to the console and leaves nothing open. syslog() would keep a descriptor, whose number is
/// another file's when the serving process has closed it.
void tell(const std::string& text) {
  static ConsoleRateLimit limit;
  limit.line(text);
  closelog();
}

void tellOfDeath(pid_t process, int status, const ServingStart& next) {
  tell("the serving process " + std::to_string(process) + " died of " +
       signalName(WTERMSIG(status)) + (WCOREDUMP(status) ? ", with a core" : ", without a core") +
       ", " + std::to_string(next.deaths) + (next.deaths == 1 ? " death" : " deaths") +
       " in the last minute: another one " +
       (next.goesOn ? "takes its place"
                    : "starts anew in " + std::to_string(kPauseBeforeNewStart.count()) + " s"));
}

/// Returns the descriptors that are open now, without what was handed over. Returns nothing if the
/// system does not tell, or if it cannot close those that come later.
std::optional<std::vector<int>> ownDescriptors(int handedOver, std::string& reason) {
  try {
    std::vector<int> open = openDescriptors();
    closeDescriptorsExcept(open);
    if (handedOver >= 0) {
      for (const int each : internetSockets(open)) {
        std::erase(open, each);
      }
      std::erase(open, handedOver);
    }
    return open;
  } catch (const std::system_error& failure) {
    reason = failure.what();
    return std::nullopt;
  }
}

}  // namespace

/// The serving processes, one after the other.
class WatchedServing {
 public:
  explicit WatchedServing(const WatchedProgram& program) : program_(program) {
    start_.handedOver = program.handedOver;
    start_.lastWish = &lastWish_;
  }

  [[noreturn]] void watch() {
    std::string reason;
    if (auto own = ownDescriptors(program_.handedOver, reason)) {
      start_.ownDescriptors = std::move(*own);
      reason = next();
    }
    if (!reason.empty()) {
      serveAlone(reason);
    }
    do {
      afterEnd(signals_.waitForEndOf(child_));
      reason = next();
    } while (reason.empty());
    tell("no other serving process can be started: " + reason);
    endProcess();
  }

 private:
  [[noreturn]] void serveAlone(const std::string& reason) {
    tell("SurviveCrashes is not available: " + reason);
    signals_.putBack();
    ServingStart alone;
    alone.handedOver = program_.handedOver;
    program_.serve(alone);
    endProcess();
  }

  /// Starts a serving process. Returns why there is none; empty if there is one.
  [[nodiscard]] std::string next() {
    lastWish_.shared().handedOver = start_.handedOver + 1;
    const auto child = cloneSharingDescriptors([this] {
      // They were ignored when the one before served, and may come until this one serves.
      if (!isFirst_) {
        ignoreHangupAndInterrupt();
      }
      signals_.putBackForServing();
      program_.serve(start_);
    });
    child_ = child.value_or(0);
    isFirst_ = false;
    return child ? std::string() : std::generic_category().message(errno);
  }

  /// Prepares the start of another one. Ends this process if there is to be none.
  void afterEnd(int status) {
    const int wish = lastWish_.shared().wish.exchange(LastWish::kNone);
    start_.handedOver = -1;
    if (WIFSIGNALED(status) && !isWishToEnd(WTERMSIG(status))) {
      afterDeath(status);
    } else if (WIFEXITED(status) && wish == LastWish::kStartAnew) {
      startAnew();
    } else if (WIFEXITED(status) && wish > 0) {
      handOver(wish - 1);
    } else {
      endProcessAs(status);
    }
  }

  void afterDeath(int status) {
    start_.deaths = deaths_.add(DeathCount::Clock::now());
    start_.goesOn = start_.deaths < DeathCount::kMost;
    if (start_.goesOn) {
      start_.handedOver = lastWish_.shared().handedOver.load() - 1;
    }
    tellOfDeath(child_, status, start_);
    if (program_.afterDeath) {
      program_.afterDeath();
    }
    if (!start_.goesOn) {
      deaths_.forgetAll();
      startAnew();
      std::this_thread::sleep_for(kPauseBeforeNewStart);
    }
  }

  void startAnew() {
    start_.goesOn = false;
    closeDescriptorsExcept(start_.ownDescriptors);
    if (program_.beforeNewStart) {
      program_.beforeNewStart();
    }
  }

  void handOver(int memoryFile) {
    signals_.putBackForNextProgram();
    start_.whyHandedBack = program_.handOver(memoryFile);
    signals_.take();
    start_.handedOver = memoryFile;
    start_.goesOn = false;
  }

  const WatchedProgram& program_;
  WatchedSignals signals_;
  LastWish lastWish_;
  ServingStart start_;
  DeathCount deaths_;
  int child_ = 0;
  bool isFirst_ = true;
};

void watchOver(const WatchedProgram& program) {
  closelog();
  WatchedServing(program).watch();
}

void LastWish::startAnew() { endWith(kStartAnew); }

void LastWish::handOver(int memoryFile) { endWith(memoryFile + 1); }

// The name server goes on, so nobody is told of an end.
void LastWish::endWith(int wish) {
  setLastAct(nullptr);
  shared().wish = wish;
  endProcess();
}

void LastWish::letGoOfHandedOver() {
  const Descriptor file(shared().handedOver.exchange(0) - 1);  // closed
}

int DeathCount::add(Clock::time_point now) {
  std::erase_if(times_, [&](Clock::time_point time) { return now - time >= kTime; });
  times_.push_back(now);
  return static_cast<int>(times_.size());
}

std::string signalName(int number) {
  const auto named = std::find_if(std::begin(kSignalNames), std::end(kSignalNames),
                                  [&](const SignalName& each) { return each.number == number; });
  return named != std::end(kSignalNames) ? named->name : "signal " + std::to_string(number);
}

}  // namespace sorvane
