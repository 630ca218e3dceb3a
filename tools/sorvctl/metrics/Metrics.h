// What monitoring wants to know of a name server, and its text form.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

#include "sorvctl/Continuity.h"
#include "sorvctl/DatabaseList.h"

namespace sorvctl::metrics {

/// How many databases have this type and state.
struct Count {
  std::string type;
  std::string state;
  std::size_t databases = 0;
};

/// What a name server that answers has told.
struct Numbers {
  std::vector<Count> counts;
  std::size_t alerts = 0;
  std::optional<double> lastChange;  ///< seconds since 1970; nothing when the server does not tell
  double now = 0;                    ///< this host's clock, in the same way
  double answerSeconds = 0;          ///< from a question to its answer, on an open connection
  std::string version;               ///< empty when the server does not tell
  std::optional<Continuity> continuity;  ///< nothing when the server does not tell
};

/// The most counts that are told. They are those with the most databases. The rest is one count
/// with the type and state "other".
inline constexpr std::size_t kMostCounts = 100;
/// The most bytes of a type, a state or a version. A longer text is cut and ends in "...".
inline constexpr std::size_t kLongestText = 64;

/// Counts the databases, ordered by type and state. Types and states come from strangers: they are
/// cut and their control characters are escaped, so that they can be labels.
[[nodiscard]] std::vector<Count> counted(const std::vector<Database>& databases);

/// Returns the text in the format OpenMetrics 1.0, from the first line to "# EOF". Nothing stands
/// for a name server that does not answer: the text tells that alone.
[[nodiscard]] std::string openMetrics(const std::optional<Numbers>& numbers);

}  // namespace sorvctl::metrics
