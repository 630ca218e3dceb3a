// Loaded before the C library into a name server under test: counts the large blocks of memory that
// it asks for, and lets it go without one of them, as the fault table says. A library of its own: a
// sanitizer has an allocator that nothing may stand before.
#include <cstdlib>

#include "faults/preload/Faults.h"

namespace {

using sorvane::test::Call;
using sorvane::test::kLargeBytes;
using sorvane::test::next;
using sorvane::test::through;

}  // namespace

// The function behind is asked for anew each time: a static variable might need memory to be made.
extern "C" void* malloc(size_t bytes) {
  auto* const allocate = next(&malloc, "malloc");
  return bytes < kLargeBytes ? allocate(bytes)
                             : through(Call::largeMemory, [=] { return allocate(bytes); });
}

extern "C" void* realloc(void* block, size_t bytes) {
  auto* const allocate = next(&realloc, "realloc");
  return bytes < kLargeBytes ? allocate(block, bytes)
                             : through(Call::largeMemory, [=] { return allocate(block, bytes); });
}
