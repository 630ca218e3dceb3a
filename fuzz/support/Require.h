// How the targets check.
#pragma once

#include <cstdio>
#include <cstdlib>

namespace sorvane::fuzz {

/// Ends the process and names the promise if it does not hold. The fuzzer then keeps the input.
inline void require(bool holds, const char* promise) {
  if (!holds) {
    std::fprintf(stderr, "does not hold: %s\n", promise);
    std::abort();
  }
}

}  // namespace sorvane::fuzz
