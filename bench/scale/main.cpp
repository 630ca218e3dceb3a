// How the cost of commands grows with the names and the watchers of a name server.
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <exception>
#include <functional>
#include <random>
#include <stdexcept>
#include <string>
#include <vector>

#include "scale/LoadedServer.h"
#include "scale/PointerChase.h"

namespace sorvane::bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::array<std::size_t, 3> kSizes{1, 1'000, 100'000};
constexpr int kBatches = 11;
constexpr std::chrono::milliseconds kBatch{20};
constexpr double kMostGrowth = 2.0;
constexpr std::size_t kFreeNumber = 1'000'000;  // no name below has it

double since(Clock::time_point start) {
  return std::chrono::duration<double, std::nano>(Clock::now() - start).count();
}

/// Nanoseconds of one call: the median of batches.
double timeOf(const std::function<void()>& call) {
  std::vector<double> batches;
  for (int batch = 0; batch < kBatches; ++batch) {
    std::uint64_t calls = 0;
    const Clock::time_point start = Clock::now();
    while (Clock::now() - start < kBatch) {
      // Looking at the clock costs as much as some calls do.
      for (int i = 0; i < 16; ++i) {
        call();
      }
      calls += 16;
    }
    batches.push_back(since(start) / static_cast<double>(calls));
  }
  std::nth_element(batches.begin(), batches.begin() + kBatches / 2, batches.end());
  return batches[kBatches / 2];
}

/// Registering and closing are timed apart, but can only be repeated together.
struct RegisterTimes {
  double registration;
  double close;
};

RegisterTimes timeOfRegistering(LoadedServer& server, std::minstd_rand& random) {
  constexpr std::size_t kTogether = 16;
  std::vector<double> registrations;
  std::vector<double> closes;
  for (int batch = 0; batch < kBatches; ++batch) {
    double registration = 0;
    double close = 0;
    constexpr int kRepeats = 1000;
    for (int i = 0; i < kRepeats; ++i) {
      std::array<Peer, kTogether> peers;
      for (Peer& peer : peers) {
        server.open(peer);
      }
      const Clock::time_point start = Clock::now();
      for (Peer& peer : peers) {
        server.registerName(peer, kFreeNumber + random() % kFreeNumber);
      }
      registration += since(start);
      const Clock::time_point end = Clock::now();
      for (Peer& peer : peers) {
        server.close(peer);
      }
      close += since(end);
    }
    registrations.push_back(registration / (kRepeats * kTogether));
    closes.push_back(close / (kRepeats * kTogether));
  }
  std::nth_element(registrations.begin(), registrations.begin() + kBatches / 2,
                   registrations.end());
  std::nth_element(closes.begin(), closes.begin() + kBatches / 2, closes.end());
  return {registrations[kBatches / 2], closes[kBatches / 2]};
}

struct Figure {
  std::string name;
  double nanoseconds;
  int cacheMisses = 0;      ///< waited for one after the other when there are many names
  bool replyGrows = false;  ///< with the names, and the time with it
};

void expect(std::string_view reply, std::string_view part) {
  if (reply.find(part) == std::string_view::npos) {
    throw std::runtime_error("a reply without " + std::string(part));
  }
}

std::vector<Figure> measure(std::size_t names, std::size_t watchers) {
  LoadedServer server(names, watchers);
  std::minstd_rand random(1);
  Request find(
      {{"findPort", "database0000000"}, {"portHost", "h"}, {"portHostAddress", "127.0.0.1"}});
  Request findUnknown(
      {{"findPort", "unknown"}, {"portHost", "h"}, {"portHostAddress", "127.0.0.1"}});
  Request ping({{"ping", ""}});
  Request didPortsChange({{"action", "didPortsChange"}});
  Request needsRefresh({{"action", "needsRefresh"}});
  Request databaseStates({{"action", "databaseStates"}});
  Peer& asker = server.watcher(0);
  find.setNumber(names - 1);
  expect(server.wholeReply(asker, find), "portNumber");
  expect(server.wholeReply(asker, findUnknown), "notFound");
  expect(server.wholeReply(asker, databaseStates), "database0000000:running");

  const RegisterTimes times = timeOfRegistering(server, random);
  std::vector<Figure> figures;
  figures.push_back({"lookup", timeOf([&] {
                       find.setNumber(random() % names);
                       server.ask(asker, find);
                     }),
                     3});  // the slot, the record, its texts
  figures.push_back({"lookup of an unknown name", timeOf([&] { server.ask(asker, findUnknown); })});
  figures.push_back({"ping", timeOf([&] { server.ask(asker, ping); })});
  figures.push_back({"registration", times.registration});
  figures.push_back({"close", times.close});
  figures.push_back({"open and close", timeOf([&] {
                       Peer peer;
                       server.open(peer);
                       server.close(peer);
                     })});
  figures.push_back({"marking", timeOf([&] { server.controller().setWatchToDirty(); })});
  figures.push_back({"needsRefresh", timeOf([&] { server.ask(asker, needsRefresh); })});
  figures.push_back({"didPortsChange", timeOf([&] {
                       server.ask(server.watcher(random() % watchers), didPortsChange);
                     }),
                     1});  // the record of the watcher
  figures.push_back(
      {"databaseStates, kept", timeOf([&] { server.ask(asker, databaseStates); }), 0, true});
  figures.push_back({"databaseStates, built anew", timeOf([&] {
                       server.controller().setWatchToDirty();
                       server.ask(asker, databaseStates);
                     }),
                     0, true});
  return figures;
}

/// Nanoseconds of a step whose address comes from the step before, in as much memory as that many
/// connections take.
double timeOfCacheMiss(std::size_t connections) {
  constexpr int kSteps = 16;
  const PointerChase chase(connections);
  std::minstd_rand random(1);
  std::size_t at = 0;
  return timeOf([&] { at = chase.follow(random() + at, kSteps); }) / kSteps;
}

const char* verdictOn(const Figure& one, const Figure& most, double cacheMisses) {
  if (one.replyGrows) {
    return "the reply grows";
  }
  if (most.nanoseconds <= kMostGrowth * one.nanoseconds) {
    return "met";
  }
  return most.nanoseconds - cacheMisses <= kMostGrowth * one.nanoseconds
             ? "met but for cache misses"
             : "MISSED";
}

void printTable(const std::string& title, const std::array<std::vector<Figure>, 3>& columns,
                double cacheMiss) {
  fmt::print("\n{}, nanoseconds\n  {:<28}{:>12}{:>12}{:>14}{:>10}{:>10}\n", title, "", "1", "1,000",
             "100,000", "1,000/1", "100,000/1");
  for (std::size_t row = 0; row < columns[0].size(); ++row) {
    const Figure& one = columns[0][row];
    const Figure& most = columns[2][row];
    fmt::print("  {:<28}{:>12.0f}{:>12.0f}{:>14.0f}{:>10.2f}{:>10.2f}  {}\n", one.name,
               one.nanoseconds, columns[1][row].nanoseconds, most.nanoseconds,
               columns[1][row].nanoseconds / one.nanoseconds, most.nanoseconds / one.nanoseconds,
               verdictOn(one, most, one.cacheMisses * cacheMiss));
  }
  std::fflush(stdout);
}

void measureAll() {
  fmt::print(
      "cost of a command in process, median of {} batches; aim: at most {:.0f} times that of "
      "one name, or one watcher\n",
      kBatches, kMostGrowth);
  const double cacheMiss = timeOfCacheMiss(kSizes.back()) - timeOfCacheMiss(1);
  fmt::print(
      "a cache miss, in the memory of {} connections: {:.0f} ns; a lookup waits for three, "
      "\"didPortsChange\" for one\n",
      kSizes.back(), cacheMiss);
  std::array<std::vector<Figure>, 3> columns;
  for (std::size_t i = 0; i < kSizes.size(); ++i) {
    columns[i] = measure(kSizes[i], 1);
  }
  printTable("names, with one watcher", columns, cacheMiss);
  for (std::size_t i = 0; i < kSizes.size(); ++i) {
    columns[i] = measure(1, kSizes[i]);
  }
  printTable("watchers, with one name", columns, cacheMiss);
}

}  // namespace
}  // namespace sorvane::bench

int main() {
  try {
    sorvane::bench::measureAll();
  } catch (const std::exception& error) {
    std::fflush(stdout);
    fmt::print(stderr, "bench: {}\n", error.what());
    return 1;
  }
  return 0;
}
