// A crowd of hostile clients against the real name server, and a guest that must not notice them.
//
//   siege SECONDS [latency] [ATTACK]...     with "latency" the guest's waiting is judged, too; only
//   the attacks
//                                           named, or all of them
//
// The bounds are set low, so that each is reached within seconds. Ends with status 0 when
//   - the guest's registrations, lookups and changes were all right,
//   - 99 of 100 of its requests took at most three times as long as with the idle server,
//   - the memory of the name server stayed below the sum of its bounds,
//   - each thing that the console should tell of is told, or counted as left out,
//   - the name server answers at the end, and all that was registered is gone with its connections.
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdio>
#include <functional>
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

#if defined(SORVANE_PLAIN)
constexpr bool kMemoryIsJudged = true;
#else
constexpr bool kMemoryIsJudged = false;  // a sanitizer keeps freed memory, and shadows of all
#endif

/// Lets the guest visit until the time is over; returns the slowest of its fast requests.
double visits(Guest& guest, Clock::time_point end, const std::function<void()>& look) {
  for (long round = guest.requests(); Clock::now() < end && guest.complaint().empty(); ++round) {
    guest.visit("guest" + std::to_string(round));
    look();
    std::this_thread::sleep_for(milliseconds(5));
  }
  return guest.takeSlowest();
}

/// One attacker: it takes the processor only when nobody else wants it, so that the guest waits for
/// the name server and not for a turn.
void attack(Field& field, const Attack& each, const std::atomic<bool>& over,
            std::atomic<long>& steps) {
  setpriority(PRIO_PROCESS, static_cast<id_t>(gettid()), 19);
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

int failures = 0;

void judge(bool well, const std::string& what) {
  std::printf("%-6s %s\n", well ? "ok" : "FAILED", what.c_str());
  failures += well ? 0 : 1;
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
  Guest guest(server.basePort());
  const double idle =
      visits(guest, Clock::now() + std::max(time / 10, std::chrono::seconds(2)), [] {});

  Field field{server.basePort()};
  std::atomic<bool> over = false;
  std::vector<std::atomic<long>> steps(attacks.size());
  std::vector<std::thread> crowd;
  for (std::size_t i = 0; i < attacks.size(); ++i) {
    crowd.emplace_back([&, i] { attack(field, attacks[i], over, steps[i]); });
  }
  long most = 0;
  const double besieged = visits(guest, Clock::now() + time, [&] {
    most = std::max(most, process.residentKibibytes() * 1024);
  });
  over = true;
  for (std::thread& each : crowd) {
    each.join();
  }
  for (std::size_t i = 0; i < attacks.size(); ++i) {
    std::printf("%8ld  %s\n", steps[i].load(), std::string(attacks[i].what).c_str());
  }

  judge(guest.complaint().empty(),
        std::to_string(guest.requests()) + " requests of the guest " + guest.complaint());
  const std::string ratio =
      std::to_string(idle) + " us idle, " + std::to_string(besieged) + " us besieged";
  if (latencyIsJudged) {
    judge(besieged <= 3 * idle, "99 of 100 took at most: " + ratio);
  } else {
    std::printf("       99 of 100 took at most: %s\n", ratio.c_str());
  }
  const std::string memory =
      std::to_string(most / kMebibyte) + " MiB of " + std::to_string(kBounds / kMebibyte);
  if (kMemoryIsJudged) {
    judge(most <= kBounds, "memory: " + memory);
  }

  // One more of each, after the limit of the rate has passed, brings the number of those left out.
  std::this_thread::sleep_for(std::chrono::seconds(ConsoleRateLimit::kSeconds + 1));
  Peer last(server.basePort());
  (void)last.send("broken");
  judge(last.isClosedByServer(), "a broken frame still ends its connection");
  ++field.refusedConnections;
  Peer raising(server.basePort());
  judge(raising.ask(Message({{"acceptPort", ""}})).has_value() && raising.lastReplyWasNil(),
        "a command that raises still has a reply");
  ++field.failedRequests;
  const auto accounts = [&](const std::string& text, long caused) {
    long told = 0;
    const bool all =
        test::waitUntil([&] { return (told = linesTold(server.console(), text)) >= caused; },
                        std::chrono::seconds(5));
    judge(all, "console: " + std::to_string(told) + " of " + std::to_string(caused) + " with \"" +
                   text + "\"");
  };
  accounts("connection closed, ", field.refusedConnections);
  accounts("Exception detected. Command could not be executed", field.failedRequests);
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
