#include "sorvctl/top/Top.h"

#include <poll.h>
#include <signal.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

#include "platform/EndProcess.h"
#include "sorvctl/Colours.h"
#include "sorvctl/Failure.h"
#include "sorvctl/Follower.h"
#include "sorvctl/Progress.h"
#include "sorvctl/StopSignals.h"
#include "sorvctl/WakePipe.h"
#include "sorvctl/top/Board.h"
#include "sorvctl/top/Screen.h"

namespace sorvctl::top {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::milliseconds kTick{1000};  // ages are shown in seconds
constexpr std::chrono::milliseconds kTimeToEnd{100};
constexpr std::chrono::milliseconds kBetweenLooks{50};  // at whose the terminal is

constexpr auto kSignals = {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGTSTP, SIGCONT, SIGWINCH};

/// The numbers of the signals that have arrived.
std::set<int> arrived(StopSignals& signals) {
  std::set<int> numbers;
  while (const auto signal = signals.wait(std::chrono::milliseconds(0))) {
    numbers.insert(signal->number);
  }
  return numbers;
}

bool asksForTheEnd(const std::set<int>& numbers) {
  return numbers.contains(SIGINT) || numbers.contains(SIGTERM) || numbers.contains(SIGHUP) ||
         numbers.contains(SIGQUIT);
}

/// Stops this process as if it did not handle the signal. Returns when it goes on.
void stopProcess() {
  struct sigaction handling {};
  struct sigaction none {};
  none.sa_handler = SIG_DFL;
  sigaction(SIGTSTP, &none, &handling);
  raise(SIGTSTP);
  sigaction(SIGTSTP, &handling, nullptr);
}

/// True when the terminal is another's, such as the shell's.
bool isInBackground() {
  const pid_t group = tcgetpgrp(STDIN_FILENO);
  return group >= 0 && group != getpgrp();
}

/// Does what the signals ask for. Returns whether the view goes on.
bool handle(StopSignals& signals, Screen& screen) {
  const std::set<int> numbers = arrived(signals);
  if (asksForTheEnd(numbers)) {
    return false;
  }
  const bool wasAway = numbers.contains(SIGTSTP) || numbers.contains(SIGCONT);
  if (numbers.contains(SIGTSTP)) {
    screen.leave();
    stopProcess();
  }
  // Whoever wakes the process may want it to end, or to go on without the terminal. It must not
  // touch the terminal then: the system would stop it before it sees another signal. It must not
  // stop itself either: a shell that gives the terminal to a job that runs does not wake that job.
  while (wasAway && isInBackground()) {
    const auto signal = signals.wait(kBetweenLooks);
    if (signal && asksForTheEnd({signal->number})) {
      return false;
    }
    if (signal && signal->number == SIGTSTP) {
      stopProcess();
    }
  }
  if (wasAway) {
    screen.enter();
  } else if (numbers.contains(SIGWINCH)) {
    screen.resize();
  }
  return true;
}

/// Shows and listens until the end.
void watch(Board& board, Screen& screen, StopSignals& signals, Follower& follower, WakePipe& seen) {
  enum { keys, signal, sight };
  std::array<pollfd, 3> waiting{pollfd{STDIN_FILENO, POLLIN, 0},
                                pollfd{signals.descriptor(), POLLIN, 0},
                                pollfd{seen.descriptor(), POLLIN, 0}};
  while (!board.isEnded()) {
    screen.show(board.picture(screen.size(), Clock::now()));
    if (poll(waiting.data(), waiting.size(), static_cast<int>(kTick.count())) <= 0) {
      continue;
    }
    if (waiting[signal].revents != 0 && !handle(signals, screen)) {
      ::signal(SIGTTOU, SIG_IGN);  // the terminal is put back even if it is another's by now
      return;
    }
    if (waiting[sight].revents != 0) {
      seen.clear();
      if (auto latest = follower.take()) {
        board.take(std::move(*latest));
      }
    }
    while (const auto press = screen.read()) {
      board.press(*press);
    }
    if ((waiting[keys].revents & (POLLHUP | POLLERR | POLLNVAL)) != 0) {
      return;  // the terminal is gone
    }
  }
}

}  // namespace

int run(const Session& session, std::chrono::milliseconds interval) {
  if (session.json()) {
    throw Failure(Status::wrongUsage, "\"top\" is for people; \"watch\" tells changes as JSON");
  }
  // Tones are escape sequences where colours are wanted.
  const bool coloured = toned("text", Tone::bad) != "text";
  Progress::turnOff();
  // Made before the screen, which would otherwise handle some of the signals itself.
  StopSignals signals(kSignals);
  WakePipe seen;
  Board board("sorvctl top: " + session.hostName() + " port " + std::to_string(session.basePort()),
              Clock::now());
  std::optional<Follower> follower;
  Screen::use(coloured, [&](Screen& screen) {
    // Not before there is a screen: its end waits for what the server is asked.
    follower.emplace(std::vector<Options>{session.options()},
                     Follower::Plan{interval, {}, [&seen] { seen.wake(); }});
    watch(board, screen, signals, *follower, seen);
  });
  follower->stop();
  if (!follower->endsWithin(kTimeToEnd)) {
    sorvane::endProcess();  // rather than wait for a server that is slow
  }
  return 0;
}

}  // namespace sorvctl::top
