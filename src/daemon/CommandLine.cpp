#include "daemon/CommandLine.h"

#include <string_view>

namespace sorvane {
namespace {

struct WordMeaning {
  std::string_view word;
  StartMode mode;
};

constexpr WordMeaning kWords[] = {
    {"-MachLaunch", StartMode::verbose},  // started by the system: always verbose, on purpose
    {"verbose", StartMode::verbose},     {"-verbose", StartMode::verbose},
    {"noexit", StartMode::foreground},   {"-noexit", StartMode::foreground},
    {"kill", StartMode::stopAll},        {"-kill", StartMode::stopAll},
};

}  // namespace

StartMode startMode(const char* firstWord) {
  if (firstWord != nullptr) {
    for (const WordMeaning& row : kWords) {
      if (row.word == firstWord) {
        return row.mode;
      }
    }
  }
  return StartMode::detached;
}

}  // namespace sorvane
