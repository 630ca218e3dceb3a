#include "driver/Survival.h"

#include <fmt/format.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstddef>
#include <cstdio>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "driver/Exchange.h"
#include "driver/ProcessFigures.h"
#include "driver/Table.h"

namespace sorvane::bench {
namespace {

using AfterCrash = NameServer::AfterCrash;
using Clock = std::chrono::steady_clock;

constexpr int kDepth = 16;
constexpr int kOtherNames = 1000;
constexpr std::size_t kFewConnections = 1000;
constexpr std::size_t kWarmUp = 20;             // connections
constexpr int kStates = 10;                     // that each connection sets
constexpr std::size_t kLooksOfTurn = 5;         // at the memory, while each sets a state
constexpr int kDeathsOfServer = 2;              // one more within a minute, and it would start anew
constexpr std::chrono::milliseconds kRest{20};  // until a server has done all and sleeps
constexpr double kLeastLookups = 0.99;          // of those without
constexpr double kMostNanoseconds = 500.0;
constexpr double kMostBytes = 300.0;

/// Gives a server something to do, under that name in the row.
using AddContender =
    std::function<void(SetupBuilder& setup, const std::string& name, const Server& server)>;

std::string text(const Spread& spread, int digits) {
  return fmt::format("{:.{}f} ({:.{}f}..{:.{}f})", spread.median, digits, spread.least, digits,
                     spread.greatest, digits);
}

/// Measures one server without SurviveCrashes and one with it in turn, both new in each round:
/// where a process lies in memory makes more of a difference than what is measured. Which is the
/// first changes with each round.
Comparison compareFresh(const std::string& title, const Options& options, const Cores& cores,
                        SampleCounts& counts, const AddContender& add) {
  Options once = options;
  once.rounds = 1;
  Comparison all{{title, {}, {}, {}}, {{}, {}}};
  for (int round = 0; round < options.freshPairs; ++round) {
    SetupBuilder builder(options, cores, title);
    const bool offFirst = round % 2 == 0;
    for (const bool off : {offFirst, !offFirst}) {
      const Server& server = builder.nameServer(off ? AfterCrash::ends : AfterCrash::goesOn);
      builder.registerName(server);
      (void)builder.enterNames(server, kOtherNames);
      add(builder, off ? "without" : kSurvival, server);
    }
    const Setup setup = builder.take();
    const Comparison pair = compare(setup.row, once, counts);
    for (const std::size_t contender : {0U, 1U}) {
      all.samples[contender].push_back(pair.samples[offFirst ? contender : 1 - contender][0]);
    }
  }
  // The servers are gone: only the names are needed from here on.
  all.row.contenders = {{"without", nullptr, {}}, {kSurvival, nullptr, {}}};
  return all;
}

void printLookups(const Comparison& comparison) {
  print(comparison);
  const Spread ratio = comparison.ratio(1, 0, Aim::Figure::perSecond);
  printAim(fmt::format("operations a second, at least {:.2f} of those without", kLeastLookups),
           text(ratio, 3), ratio.median >= kLeastLookups);
}

void printRegistrations(const Comparison& comparison) {
  print(comparison);
  std::vector<double> more;
  for (std::size_t round = 0; round < comparison.samples[0].size(); ++round) {
    more.push_back(comparison.samples[1][round].cpuPerOperation -
                   comparison.samples[0][round].cpuPerOperation);
  }
  const Spread spread = Spread::of(std::move(more));
  printAim(fmt::format("server CPU for each, at most {:.0f} ns more", kMostNanoseconds),
           text(spread, 0), spread.median <= kMostNanoseconds);
}

/// One connection that registers the same names again and again, sixteen at once.
Exchange registrations(int port) {
  std::vector<Exchange> together;
  for (int i = 0; i < kDepth; ++i) {
    together.push_back(
        recordExchange(port, sorvane_requests::reconnectPort(fmt::format("again{:02}", i))));
  }
  return joined(together);
}

std::string nameOf(std::size_t number) { return fmt::format("database{:05}", number); }

/// The memory of a name server, bytes.
struct Memory {
  double atStart = 0.0;     ///< of all its processes
  double registered = 0.0;  ///< for each connection that has registered a name
  double changed = 0.0;     ///< the same, the greatest while they set states
};

Memory memoryWith(const Options& options, const Cores& cores, AfterCrash afterCrash) {
  const NameServer server(options.daemon, cores.server, 1, true, afterCrash);
  const auto now = [&] { return static_cast<double>(memoryOf(server.processes())); };
  std::this_thread::sleep_for(kRest);
  Memory result;
  result.atStart = now();
  std::vector<Socket> sockets;
  const auto openUpTo = [&](std::size_t count) {
    while (sockets.size() < count) {
      sockets.push_back(openRegistered(server.port(), nameOf(sockets.size())));
    }
  };
  openUpTo(kWarmUp);
  const double before = now();
  const auto count = static_cast<std::size_t>(options.idleConnections);
  const auto forEach = [&] { return (now() - before) / static_cast<double>(count); };
  openUpTo(kWarmUp + count);
  result.registered = forEach();
  const std::size_t untilLook = std::max<std::size_t>(1, sockets.size() / kLooksOfTurn);
  for (int turn = 0; turn < kStates; ++turn) {
    const std::string state = fmt::format("state {}", turn);
    for (std::size_t i = 0; i < sockets.size(); ++i) {
      sockets[i].sendAll(sorvane_requests::setDatabaseState(nameOf(i), state));
      (void)sockets[i].receiveFrame();
      if ((i + 1) % untilLook == 0) {
        result.changed = std::max(result.changed, forEach());
      }
    }
  }
  return result;
}

void printMemoryFigure(const std::string& what, const std::vector<Memory>& without,
                       const std::vector<Memory>& with, double Memory::*figure,
                       std::optional<double> most) {
  std::vector<double> lower;
  std::vector<double> higher;
  std::vector<double> more;
  for (std::size_t i = 0; i < without.size(); ++i) {
    lower.push_back(without[i].*figure);
    higher.push_back(with[i].*figure);
    more.push_back(higher.back() - lower.back());
  }
  const Spread spread = Spread::of(std::move(more));
  fmt::print("  {:<44}{:>12}{:>12}  {}\n", what, grouped(Spread::of(std::move(lower)).median),
             grouped(Spread::of(std::move(higher)).median), text(spread, 0));
  if (most) {
    printAim(fmt::format("at most {:.0f} bytes more", *most), text(spread, 0),
             spread.median <= *most);
  }
}

void printSurvivalMemory(const Options& options, const Cores& cores) {
  std::vector<Memory> without;
  std::vector<Memory> with;
  for (int round = 0; round < options.memoryRounds; ++round) {
    without.push_back(memoryWith(options, cores, AfterCrash::ends));
    with.push_back(memoryWith(options, cores, AfterCrash::goesOn));
  }
  fmt::print("\nmemory with {} and without, of all processes of the server together, bytes\n",
             kSurvival);
  fmt::print("  {:<44}{:>12}{:>12}  {}\n", "", "without", "with", "more");
  printMemoryFigure("before the first connection", without, with, &Memory::atStart, std::nullopt);
  const std::string each = fmt::format("each of {} registered", grouped(options.idleConnections));
  printMemoryFigure(each, without, with, &Memory::registered, kMostBytes);
  printMemoryFigure(fmt::format("each, while all set {} states", kStates), without, with,
                    &Memory::changed, kMostBytes);
  std::fflush(stdout);
}

pid_t servingProcess(const Server& server) {
  const std::vector<pid_t> processes = server.processes();
  if (processes.size() != 2) {
    throw std::runtime_error("the name server does not have two processes");
  }
  return processes[1];
}

/// Kills the serving process. Returns how long the lookup takes that is sent at that moment,
/// milliseconds. Raises when its reply is another one than before.
double silenceOfDeath(const Server& server, const Socket& client, const Exchange& lookup) {
  const pid_t before = servingProcess(server);
  const Clock::time_point death = Clock::now();
  if (::kill(before, SIGKILL) != 0) {
    throwSystemError("kill");
  }
  client.sendAll(lookup.request);
  const bool isSame = client.receive(lookup.reply.size()) == lookup.reply;
  const double silence = std::chrono::duration<double, std::milli>(Clock::now() - death).count();
  if (!isSame || servingProcess(server) == before) {
    throw std::runtime_error("the name server has not survived a crash");
  }
  return silence;
}

void printSilenceOfCrash(const Options& options, const Cores& cores, std::size_t connections) {
  std::vector<double> silences;
  for (int i = 0; i < options.deaths / kDeathsOfServer; ++i) {
    const NameServer server(options.daemon, cores.server, 1, true, AfterCrash::goesOn);
    std::vector<Socket> registered;
    for (std::size_t number = 0; number < connections; ++number) {
      registered.push_back(openRegistered(server.port(), nameOf(number)));
    }
    const Exchange lookup =
        recordExchange(server.port(), sorvane_requests::findPort(nameOf(connections - 1)));
    for (int death = 0; death < kDeathsOfServer; ++death) {
      std::this_thread::sleep_for(kRest);  // a connection at work would be closed
      silences.push_back(silenceOfDeath(server, registered.front(), lookup));
    }
    for (const Socket& each : registered) {  // none was closed
      each.sendAll(sorvane_requests::ping());
      (void)each.receiveFrame();
    }
  }
  const std::size_t count = silences.size();
  const Spread spread = Spread::of(std::move(silences));
  fmt::print("  {:>7} connections, {} deaths: half within {:.1f}, the longest {:.1f}\n",
             grouped(static_cast<double>(connections)), count, spread.median, spread.greatest);
}

}  // namespace

void printSurvival(const Options& options, const Cores& cores, SampleCounts& counts) {
  fmt::print("\nwhat {} costs, {} pairs of new servers, {} other names\n", kSurvival,
             options.freshPairs, grouped(kOtherNames));
  printColumns();
  const auto lookups = [](int connections, int depth) {
    return [=](SetupBuilder& setup, const std::string& name, const Server& server) {
      const Exchange one = recordExchange(server.port(), sorvane_requests::findPort());
      setup.steady(name, server, {pipelined(one, depth)}, connections);
    };
  };
  const auto measure = [&](const char* title, const AddContender& add) {
    return compareFresh(title, options, cores, counts, add);
  };
  printLookups(
      measure("lookup, 50 connections, pipelined by 16", lookups(kManyConnections, kDepth)));
  printLookups(measure("lookup, 1 connection", lookups(1, 1)));
  printRegistrations(
      measure("registration, 1 connection, pipelined by 16",
              [](SetupBuilder& setup, const std::string& name, const Server& server) {
                setup.steady(name, server, {registrations(server.port())}, 1);
              }));
  printRegistrations(measure(
      "connect + register + close",
      [](SetupBuilder& setup, const std::string& name, const Server& server) {
        setup.cycles(name, server, recordCycles(server.port(), sorvane_requests::registration));
      }));
  printSurvivalMemory(options, cores);
  fmt::print(
      "\nsilence of a crash: a lookup that is sent when the serving process is killed, ms\n");
  const auto most = static_cast<std::size_t>(options.idleConnections);
  printSilenceOfCrash(options, cores, std::min(kFewConnections, most));
  printSilenceOfCrash(options, cores, most);
}

}  // namespace sorvane::bench
