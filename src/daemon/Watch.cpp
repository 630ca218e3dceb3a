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

#include "platform/Console.h"
#include "platform/EndProcess.h"
#include "platform/SharedDescriptors.h"

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

// Set in the serving process before it serves.
bool watched = false;

/// The signals by which people, terminals and service managers end a program.
bool isWishToEnd(int signal) { return signal == SIGTERM || signal == SIGINT || signal == SIGHUP; }

/// The signals of the watching process: those that it takes are blocked, to be waited for.
class WatchedSignals {
 public:
  WatchedSignals() {
    sigemptyset(&taken_);
    for (const int number : {SIGCHLD, SIGUSR2, SIGHUP, SIGINT}) {
      sigaddset(&taken_, number);
    }
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

  /// Waits for the end of the child and passes on to it what comes for it. Returns the status.
  [[nodiscard]] int waitForEndOf(pid_t child) const {
    for (;;) {
      int number = 0;
      if (sigwait(&taken_, &number) != 0) {
        continue;
      }
      int status = 0;
      if (number != SIGCHLD) {
        kill(child, number);
      } else if (waitpid(child, &status, WNOHANG) == child) {
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

/// Returns the descriptors that are open now. Returns nothing if the system does not tell, or if it
/// cannot close those that come later.
std::optional<std::vector<int>> ownDescriptors(std::string& reason) {
  try {
    std::vector<int> open = openDescriptors();
    closeDescriptorsExcept(open);
    return open;
  } catch (const std::system_error& failure) {
    reason = failure.what();
    return std::nullopt;
  }
}

}  // namespace

void watchOver(const std::function<void(const ServingStart& start)>& serve) {
  closelog();
  std::string reason;
  ServingStart start;
  const WatchedSignals signals;
  const auto next = [&]() -> std::optional<int> {
    const auto child = cloneSharingDescriptors([&] {
      signals.putBackForServing();
      watched = true;
      serve(start);
    });
    if (!child) {
      reason = std::generic_category().message(errno);
    }
    return child;
  };

  std::optional<int> child;
  if (auto own = ownDescriptors(reason)) {
    start.ownDescriptors = std::move(*own);
    child = next();
  }
  if (!child) {
    tell("SurviveCrashes is not available: " + reason);
    signals.putBack();
    serve({});
    endProcess();
  }
  DeathCount deaths;
  do {
    const int status = signals.waitForEndOf(*child);
    if (!WIFSIGNALED(status) || isWishToEnd(WTERMSIG(status))) {
      endProcessAs(status);
    }
    start.deaths = deaths.add(DeathCount::Clock::now());
    start.goesOn = start.deaths < DeathCount::kMost;
    tellOfDeath(*child, status, start);
    if (!start.goesOn) {
      deaths.forgetAll();
      closeDescriptorsExcept(start.ownDescriptors);
      std::this_thread::sleep_for(kPauseBeforeNewStart);
    }
    child = next();
  } while (child);
  tell("no other serving process can be started: " + reason);
  endProcess();
}

bool isWatchedOver() { return watched; }

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
