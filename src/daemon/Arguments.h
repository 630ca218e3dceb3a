// The arguments of the process.
//
// `main` records them once, before any other thread exists. From then on any thread may read them.
// The texts belong to the process; the caller never frees them.
#pragma once

#include <cstdint>

namespace sorvane {

/// Records the argument array that `main` was given. Null means that there is none.
void recordArguments(int count, const char* const* arguments);

/// Returns the number of arguments, the program's path included; 0 without an argument array.
[[nodiscard]] std::int32_t VN_parameterCount();

/// Returns the argument at `index`; index 0 is the program's path. Returns null when the index is
/// negative or beyond the end of the array.
[[nodiscard]] const char* VN_parameter(std::int32_t index);

/// The same as VN_parameter.
[[nodiscard]] const char* parameterString(std::int32_t index);

}  // namespace sorvane
