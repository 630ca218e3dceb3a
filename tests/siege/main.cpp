// A crowd of hostile clients against the real name server, and a guest that must not notice them.
//
//   siege SECONDS [latency] [ATTACK]...     with "latency" the guest's waiting is judged, too; only
//                                           the attacks named, or all of them
//
// The bounds are set low, so that each is reached within seconds. Ends with status 0 when
//   - the guest's registrations, lookups and changes were all right,
//   - 99 of 100 of its requests took at most three times as long as with an idle name server that
//   it
//     visits in turn: the crowd takes its share of this machine from both,
//   - the memory of the name server stayed below the sum of its bounds,
//   - each thing that the console should tell of is told, or counted as left out,
//   - the name server answers at the end, and all that was registered is gone with its connections.
#include <sched.h>
#include <sys/resource.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>
#include <functional>
#include <initializer_list>
#include <limits>
#include <regex>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include "integration/Daemon.h"
#include "integration/DaemonProcess.h"
#include "platform/Console.h"
#include "siege/Crowd.h"
#include "siege/Guest.h"
#include "support/TestedBuild.h"

namespace sorvane::siege {
namespace {

using Clock = std::chrono::steady_clock;
using std::chrono::milliseconds;

constexpr long kMebibyte = 1024 * 1024;
// More than ended connections may leave behind: a registry that is full has no room for a guest.
constexpr long kRegistry = 160 * kMebibyte;
constexpr long kUnfinished = 32 * kMebibyte;
constexpr long kUnsent = 32 * kMebibyte;
constexpr long kLog = 16 * kMebibyte;
// The preferences: their text of 16 MiB, the dictionary, and the text of one write.
constexpr long kPreferences = 3 * 16 * kMebibyte;
// The lists of states and alerts have the length of a reply at most: an old one and a new one.
constexpr long kLists = 2 * 64 * kMebibyte;
// What the program has at rest, and what the allocator keeps between blocks of all sizes.
constexpr long kRest = 64 * kMebibyte;
constexpr long kBounds = kRegistry + kUnfinished + kUnsent + kPreferences + kLists + kRest;

// A sanitizer keeps freed memory, and shadows of all.
const bool kMemoryIsJudged = test::areTestedWithoutSanitizers();

/// Lets the guests visit in turn until the time is over.
void visits(
    std::initializer_list<Guest*> guests, Clock::time_point end,
    const std::function<void()>& look = [] {}) {
  for (long round = 0; Clock::now() < end; ++round) {
    for (Guest* const guest : guests) {
      if (!guest->complaint().empty()) {
        return;
      }
      guest->visit("guest" + std::to_string(round));
    }
    look();
    std::this_thread::sleep_for(milliseconds(5));
  }
}

/// Lets this thread take the processor only when nobody else wants it, so that the guest waits for
/// the name server and not for a turn.
void giveWay() {
#if defined(SCHED_IDLE)
  const sched_param none{};
  if (sched_setscheduler(0, SCHED_IDLE, &none) == 0) {
    return;
  }
#endif
  setpriority(PRIO_PROCESS, 0, 19);
}

/// One attacker.
void attack(Field& field, const Attack& each, const std::atomic<bool>& over,
            std::atomic<long>& steps) {
  giveWay();
  const auto step = each.begin(field);
  while (!over) {
    step();
    ++steps;
    std::this_thread::sleep_for(each.pause);
  }
}

/// Counts the console's lines with this text, and those left out before one of them.
long linesTold(const std::string& console, const std::string& text) {
  static const std::regex leftOut("^[^ ]+ (\\d+) lines like the next one were left out$");
  long told = 0;
  long before = 0;
  for (std::size_t at = 0; at < console.size();) {
    const std::size_t end = std::min(console.find('\n', at), console.size());
    const std::string line = console.substr(at, end - at);
    at = end + 1;
    std::smatch match;
    if (line.find(text) != std::string::npos) {
      told += 1 + std::exchange(before, 0);
    } else if (std::regex_match(line, match, leftOut)) {
      before = std::stol(match[1]);
    } else {
      before = 0;
    }
  }
  return told;
}

std::string whole(double number) { return std::to_string(std::lround(number)); }

int failures = 0;

void judge(bool well, const std::string& what) {
  std::printf("%-6s %s\n", well ? "ok" : "FAILED", what.c_str());
  failures += well ? 0 : 1;
}

/// Causes a line for a broken frame and one for a command that raises. Returns whether the first
/// has ended its connection and the second has a nil reply.
bool causeOneOfEach(test::Daemon& server) {
  Peer broken(server.basePort());
  Peer raising(server.basePort());
  return broken.send("broken") && broken.isClosedByServer() &&
         raising.ask(Message({{"acceptPort", ""}})) && raising.lastReplyWasNil();
}

/// What the crowd has caused is told, or counted as left out; and so is, exactly, what is caused
/// once the crowd has gone.
void judgeConsole(test::Daemon& server, const Field& field) {
  constexpr const char* kClosed = "connection closed, ";
  constexpr const char* kRaised = "Exception detected. Command could not be executed";
  constexpr long kMore = 50;
  // The first line after the limit of the rate has passed tells how many were left out.
  const auto passLimit = [] {
    std::this_thread::sleep_for(std::chrono::seconds(ConsoleRateLimit::kSeconds + 1));
  };
  const auto judgeLines = [&](const char* text, long least, long most) {
    long told = 0;
    const bool all =
        test::waitUntil([&] { return (told = linesTold(server.console(), text)) >= least; },
                        std::chrono::seconds(5));
    judge(all && told <= most, "console: " + std::to_string(told) + " lines with \"" + text +
                                   "\", at least " + std::to_string(least) + " are due");
    return told;
  };
  passLimit();
  bool isRight = causeOneOfEach(server);
  constexpr long kAny = std::numeric_limits<long>::max();
  const long closed = judgeLines(kClosed, field.refusedConnections + 1, kAny);
  const long raised = judgeLines(kRaised, field.failedRequests + 1, kAny);
  for (long i = 0; i < kMore; ++i) {
    isRight = causeOneOfEach(server) && isRight;
  }
  passLimit();
  isRight = causeOneOfEach(server) && isRight;
  judge(isRight, "broken frames end their connections, and commands that raise have replies");
  judgeLines(kClosed, closed + kMore + 1, closed + kMore + 1);
  judgeLines(kRaised, raised + kMore + 1, raised + kMore + 1);
}

int run(std::chrono::seconds time, bool latencyIsJudged, const std::vector<Attack>& attacks) {
  test::Daemon server;
  server.setting("MaxRegistryBytes", std::to_string(kRegistry))
      .setting("MaxUnfinishedBytes", std::to_string(kUnfinished))
      .setting("MaxUnsentBytes", std::to_string(kUnsent))
      .setting("MaxLogBytes", std::to_string(kLog))
      .setting("PartialMessageTimeout", "5");
  server.start();
  const test::DaemonProcess process(server.process());
  test::Daemon idleServer;
  idleServer.start();
  Guest guest(server.basePort());
  Guest control(idleServer.basePort());
  visits({&guest, &control}, Clock::now() + std::max(time / 10, std::chrono::seconds(2)));
  const double before = guest.takeSlowest();
  static_cast<void>(control.takeSlowest());

  Field field{server.basePort()};
  std::atomic<bool> over = false;
  std::vector<std::atomic<long>> steps(attacks.size());
  std::vector<std::thread> crowd;
  for (std::size_t i = 0; i < attacks.size(); ++i) {
    crowd.emplace_back([&, i] { attack(field, attacks[i], over, steps[i]); });
  }
  long most = 0;
  visits({&guest, &control}, Clock::now() + time,
         [&] { most = std::max(most, process.residentKibibytes() * 1024); });
  over = true;
  for (std::thread& each : crowd) {
    each.join();
  }
  for (std::size_t i = 0; i < attacks.size(); ++i) {
    std::printf("%8ld  %s\n", steps[i].load(), std::string(attacks[i].what).c_str());
  }

  judge(guest.complaint().empty(),
        std::to_string(guest.requests()) + " requests of the guest " + guest.complaint());
  const double besieged = guest.takeSlowest();
  const double idle = control.takeSlowest();
  const std::string times = "99 of 100 took at most " + whole(besieged) +
                            " us besieged; those to an idle name server " + whole(idle) +
                            " us meanwhile, " + whole(before) + " us before";
  if (latencyIsJudged) {
    judge(besieged <= 3 * idle, times);
  } else {
    std::printf("       %s\n", times.c_str());
  }
  const std::string memory =
      std::to_string(most / kMebibyte) + " MiB of " + std::to_string(kBounds / kMebibyte);
  if (kMemoryIsJudged) {
    judge(most <= kBounds, "memory: " + memory);
  }

  judgeConsole(server, field);
  judge(std::filesystem::file_size(server.tree() / "Logs/infoserver_log") <=
            static_cast<std::uintmax_t>(kLog) + 4096,
        "the log is within its bound");
  judge(server.console().find('\x1b') == std::string::npos &&
            server.log().find('\x1b') == std::string::npos,
        "no escape has reached console or log");
  guest.visit("last");
  judge(guest.complaint().empty(), "the name server serves on " + guest.complaint());
  return failures == 0 ? 0 : 1;
}

}  // namespace
}  // namespace sorvane::siege

int main(int argc, char** argv) {
  std::vector<std::string_view> words(argv + 1, argv + argc);
  int seconds = 0;
  if (!words.empty()) {
    const char* const end = words[0].data() + words[0].size();
    const auto [stop, error] = std::from_chars(words[0].data(), end, seconds);
    seconds = error == std::errc() && stop == end ? seconds : 0;
    words.erase(words.begin());
  }
  const bool latencyIsJudged = !words.empty() && words[0] == "latency";
  if (latencyIsJudged) {
    words.erase(words.begin());
  }
  const bool all = words.empty();
  std::vector<sorvane::siege::Attack> attacks;
  for (const sorvane::siege::Attack& each : sorvane::siege::attacks()) {
    if (all || std::erase(words, each.what) > 0) {
      attacks.push_back(each);
    }
  }
  if (seconds < 1 || !words.empty()) {
    std::fputs("usage: siege SECONDS [latency] [ATTACK]...\n", stderr);
    return 2;
  }
  std::setvbuf(stdout, nullptr, _IOLBF, 0);
  return sorvane::siege::run(std::chrono::seconds(seconds), latencyIsJudged, attacks);
}
