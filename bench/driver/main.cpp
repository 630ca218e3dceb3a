// The benchmark of the name server: loads it and its rivals in turn, and prints one table.
#include <fmt/format.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <string>

#include "driver/Comparison.h"
#include "driver/Footprint.h"
#include "driver/Options.h"
#include "driver/Rows.h"
#include "driver/Silence.h"
#include "driver/Survival.h"
#include "driver/Table.h"
#include "driver/Telling.h"

namespace {

using sorvane::bench::kSurvival;
using sorvane::bench::kUpgrade;
using sorvane::bench::kWhoWait;
using sorvane::bench::Options;

constexpr int kDescriptorsBesides = 200;  // those that are no idle connections
// Beside a crowd: those of the lookups, and of databases whose end the server has not seen yet.
constexpr int kConnectionsBesides = 500;

void makeQuick(Options& options) {
  options.rounds = 3;
  options.sample = std::chrono::milliseconds(250);
  options.repeats = 1;
  options.starts = 5;
  options.upgrades = 5;
  options.freshPairs = 3;
  options.memoryRounds = 1;
  options.deaths = 4;
  options.changes = 50;
  options.askedChanges = 2;
  options.idleTime = std::chrono::milliseconds(3000);
}

/// Enough to see that everything works; the figures mean nothing.
void makeTrial(Options& options) {
  options.rounds = 1;
  options.sample = std::chrono::milliseconds(50);
  options.repeats = 0;
  options.starts = 1;
  options.upgrades = 1;
  options.freshPairs = 1;
  options.memoryRounds = 1;
  options.deaths = 2;
  options.idleTime = std::chrono::milliseconds(200);
  options.idleConnections = 200;
  options.crowd = 100;
  options.watchers = 100;
  options.changes = 3;
  options.askedChanges = 1;
  options.askingInterval = std::chrono::milliseconds(50);
}

bool wanted(const Options& options, const std::string& title) {
  return title.find(options.only) != std::string::npos;
}

void runAll(Options options) {
  using namespace sorvane::bench;
  const Cores cores = Cores::choose();
  stayOn(cores.generator);
  const int descriptors = raiseDescriptorLimit() - kDescriptorsBesides;
  options.idleConnections = std::min(options.idleConnections, descriptors);
  options.crowd = std::min(options.crowd, (descriptors - kConnectionsBesides) / 2);
  fmt::print(
      "servers on core {}, generator on core {}, {} rounds of {} ms; the latency of a "
      "pipelined request is that of its 16\n",
      cores.server[0], cores.generator[0], options.rounds, options.sample.count());
  if (cores.all.size() < 3) {
    fmt::print(
        "only two cores: with two serving threads, one shares its core with the generator\n");
  }
  SampleCounts counts;
  for (const RowMaker& maker : allRows(options, cores)) {
    if (wanted(options, maker.title)) {
      if (counts.kept == 0) {
        printColumns();
      }
      const Setup setup = maker.make();
      print(compare(setup.row, options, counts));
    }
  }
  if (wanted(options, "memory of the server's own")) {
    printMemory(options, cores);
  }
  if (wanted(options, std::string("a change told to those ") + kWhoWait)) {
    printTelling(options, cores);
  }
  if (wanted(options, std::string("silence of an ") + kUpgrade)) {
    printSilence(options, cores);
  }
  if (wanted(options, std::string("what ") + kSurvival + " costs")) {
    printSurvival(options, cores, counts);
  }
  if (wanted(options, "start of the process to its first answer")) {
    printStart(options, cores);
  }
  if (wanted(options, "commands of sorvctl, from their start to their end")) {
    printCommands(options, cores);
  }
  if (wanted(options, "idle name server")) {
    printRest(options, cores);
  }
  if (counts.kept == 0) {
    return;
  }
  fmt::print(
      "\n{} samples, {} taken again because other work disturbed them, {} kept although "
      "disturbed\n",
      counts.kept, counts.repeated, counts.keptDisturbed);
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  std::string daemon;
  std::string sorvctl;
  bool quick = false;
  bool trial = false;
  bool withoutRivals = false;
  bool watch = false;
  bool upgrade = false;
  bool survive = false;
  CLI::App app("Measures the name server beside a bare echo server, redis and memcached.", "bench");
  app.add_option("--daemon", daemon, "The built name server")->required()->check(CLI::ExistingFile);
  app.add_option("--sorvctl", sorvctl, "The built command")->required()->check(CLI::ExistingFile);
  app.add_flag("--quick", quick, "Three short rounds: under a minute, wider spread");
  app.add_flag("--trial", trial, "One very short round: shows that it works, measures nothing");
  app.add_flag("--no-rivals", withoutRivals, "Leave redis and memcached out");
  app.add_option("--only", options.only, "Only the rows whose title contains this");
  app.add_flag("--watch", watch,
               "Only how soon those who wait hear of a change, and what it costs");
  app.add_flag("--upgrade", upgrade, "Only the silence of an upgrade in place");
  app.add_flag("--survive", survive, "Only what SurviveCrashes costs, and the silence of a crash");
  CLI11_PARSE(app, argc, argv);
  options.daemon = daemon;
  options.sorvctl = sorvctl;
  options.rivals = !withoutRivals;
  if (watch) {
    options.only = kWhoWait;
  }
  if (upgrade) {
    options.only = kUpgrade;
  }
  if (survive) {
    options.only = kSurvival;
  }
  if (quick) {
    makeQuick(options);
  }
  if (trial) {
    makeTrial(options);
  }
  try {
    runAll(options);
  } catch (const std::exception& error) {
    std::fflush(stdout);
    fmt::print(stderr, "bench: {}\n", error.what());
    return 1;
  }
  return 0;
}
