// The arguments of the process.
//
// `main` records them once, before any other thread exists; after that every thread may ask. The
// texts belong to the process and are never freed by the caller.
#pragma once

#include <cstdint>

namespace sorvane {

/// Records the argument array that `main` was given; null stands for none.
void recordArguments(int count, const char* const* arguments);

/// How many arguments there are, the program's path among them; 0 without an argument array.
[[nodiscard]] std::int32_t VN_parameterCount();

/// The argument at `index`, 0 being the program's path. Null for an index outside the array, a
/// negative one among them.
[[nodiscard]] const char* VN_parameter(std::int32_t index);

/// The same as VN_parameter.
[[nodiscard]] const char* parameterString(std::int32_t index);

}  // namespace sorvane
