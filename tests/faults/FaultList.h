// Which errors each kind of call can fail with, and what that may cost.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "faults/preload/FaultTable.h"

namespace sorvane::test {

/// What a failed call may cost at most.
enum class Cost : std::uint8_t {
  nothing,        ///< every client is served as if it had not failed
  theStoring,     ///< the storing of one change of the preferences, with a line on the console
  oneConnection,  ///< the connection whose call it was, and what that has registered
  process,        ///< the process, with a line on the console: what `abort` is promised for
};

struct PossibleFault {
  Call call;
  int error;  ///< an error number, or what FaultTable.h has in the place of one
  Cost cost;
  bool isTriedAlways;  ///< also in the short form
};

/// Every kind of call that is counted, with its errors.
[[nodiscard]] std::span<const PossibleFault> possibleFaults();

/// The name of a kind, for test names.
[[nodiscard]] std::string_view nameOf(Call call);

}  // namespace sorvane::test
