// How thorough a run is.
#pragma once

#include <chrono>
#include <filesystem>
#include <string>

namespace sorvane::bench {

struct Options {
  std::filesystem::path daemon;   ///< the built name server
  std::filesystem::path sorvctl;  ///< the built command
  int rounds = 5;
  std::chrono::milliseconds sample{1000};  ///< length of one measurement
  int idleConnections = 10'000;
  int crowd = 10'000;                              ///< databases, and as many watchers
  int watchers = 1000;                             ///< who are told of a change
  int changes = 200;                               ///< that they are told of
  int askedChanges = 5;                            ///< that they are told of when they ask
  std::chrono::milliseconds askingInterval{1000};  ///< how often each of them asks
  int repeats = 4;                                 ///< how often a disturbed sample is taken again
  int upgrades = 20;                               ///< in place, whose silence is measured
  int freshPairs = 15;                             ///< of servers, with SurviveCrashes and without
  int memoryRounds = 3;                            ///< with SurviveCrashes and without
  int deaths = 20;                                 ///< whose silence is measured; even
  int starts = 20;                                 ///< how often the start is timed
  std::chrono::milliseconds idleTime{10'000};      ///< how long the idle name server is watched
  std::string only;  ///< rows whose title contains this; all when empty
  bool rivals = true;
};

}  // namespace sorvane::bench
