// How long ago something was, in a few columns.
#pragma once

#include <chrono>
#include <string>

namespace sorvctl {

/// Returns "4 s", "3 min", "2 h" or "5 d": the largest unit of which at least one has passed,
/// rounded down. At most 6 columns: a longer time than 9999 days is "9999 d", a negative one "0 s".
[[nodiscard]] std::string ageText(std::chrono::seconds age);

}  // namespace sorvctl
