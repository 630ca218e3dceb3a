#include "daemon/CommandLine.h"

namespace sorvane {
namespace {

constexpr StartWord kWords[] = {
    {"-MachLaunch", StartMode::verbose},  // started by the system: always verbose, on purpose
    {"verbose", StartMode::verbose},      {"-verbose", StartMode::verbose},
    {"noexit", StartMode::foreground},    {"-noexit", StartMode::foreground},
    {"kill", StartMode::stopAll},         {"-kill", StartMode::stopAll},
    {"-understands", StartMode::answers},
};

}  // namespace

std::span<const StartWord> startWords() { return kWords; }

StartMode startMode(const char* firstWord) {
  if (firstWord != nullptr) {
    for (const StartWord& row : kWords) {
      if (row.word == firstWord) {
        return row.mode;
      }
    }
  }
  return StartMode::detached;
}

}  // namespace sorvane
