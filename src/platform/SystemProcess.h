// What the system tells about any of its processes.
//
// Implemented in host/SystemProcessLinux.cpp; on other systems in host/SystemProcessPortable.cpp,
// which knows only whether a process is alive.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "platform/Descriptor.h"

namespace sorvane {

/// A living process. What is missing is not told to this user, or not by this system.
struct SystemProcess {
  int number = 0;
  std::string name;           ///< of its program, cut at 15 bytes; may hold any byte
  std::string executable;     ///< the path of its program
  std::optional<int> parent;  ///< the process whose child it is
  struct Owner {
    unsigned user = 0;
    unsigned group = 0;
    std::vector<unsigned> groups;  ///< the further ones
  };
  std::optional<Owner> owner;  ///< the effective ones
  std::optional<std::chrono::system_clock::time_point>
      started;                                 ///< to a few hundredths of a second
  std::optional<std::uint64_t> openFileLimit;  ///< the soft limit
};

/// Returns the process with this number, or nothing if there is none. Any thread.
[[nodiscard]] std::optional<SystemProcess> systemProcess(int number);

/// Opens the folder that the process sees as "/". Returns none if this user may not.
[[nodiscard]] Descriptor openRootOfProcess(int number);

/// Returns the name of a user, or its number if it has none. Any thread.
[[nodiscard]] std::string userName(unsigned user);

}  // namespace sorvane
