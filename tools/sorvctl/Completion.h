// What may stand at the end of a command line that is not complete yet.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "sorvctl/Arguments.h"
#include "sorvctl/GivenOptions.h"

namespace sorvctl {

struct Candidate {
  std::string text;         ///< the whole word
  std::string description;  ///< empty for the name of a database
};

/// Returns the names of databases that the name server of these options knows. Throws a Failure
/// when it cannot be asked.
using DatabaseNames = std::function<std::vector<std::string>(const GivenOptions&, NamesOf)>;

/// Returns what the last of the words, which may be empty, can become: commands, options, and the
/// values of options and arguments. `words` are those behind "sorvctl". Empty where nothing is
/// known, such as for the arguments of a program. `names` is called only where the name of a
/// database stands. Names that a terminal could not show as they are are left out; of the others
/// come 1,000 at most.
[[nodiscard]] std::vector<Candidate> candidates(const std::vector<std::string>& words,
                                                const DatabaseNames& names);

}  // namespace sorvctl
