// The part of a preloaded library that looks into the fault table before each call.
#pragma once

#include <dlfcn.h>
#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <type_traits>

#include "faults/preload/FaultTable.h"

namespace sorvane::test {

// Null until the program begins: nothing that the loading does is counted. Each library has its
// own.
static FaultTable* table = nullptr;

__attribute__((constructor)) static void mapTable() {
  const char* const name = ::getenv("FAULT_TABLE");
  const int file = name == nullptr ? -1 : ::open(name, O_RDWR | O_CLOEXEC);
  if (file < 0) {
    return;
  }
  void* const shared =
      ::mmap(nullptr, sizeof(FaultTable), PROT_READ | PROT_WRITE, MAP_SHARED, file, 0);
  ::close(file);
  if (shared != MAP_FAILED) {
    table = static_cast<FaultTable*>(shared);
  }
}

/// The function of that name that this library stands before. The first argument is this library's
/// own, for its type.
template <typename Function>
Function* next(Function* /*self*/, const char* name) {
  return reinterpret_cast<Function*>(dlsym(RTLD_NEXT, name));
}

/// Counts a call and returns what it is to fail with; 0 when it is not to fail.
static int faultOf(Call call) {
  if (table == nullptr || !table->counts.load(std::memory_order_acquire)) {
    return 0;
  }
  const std::uint64_t number = ++table->calls[static_cast<std::size_t>(call)];
  if (table->call != call || table->number != number) {
    return 0;
  }
  table->struck = true;
  return table->error;
}

[[noreturn]] static void endByKill() {
  for (;;) {
    ::kill(::getpid(), SIGKILL);
  }
}

/// Makes a call, unless the table lets it fail. `shorter` makes it for fewer bytes.
template <typename Make, typename MakeShorter>
auto through(Call call, Make make, MakeShorter shorter) -> decltype(make()) {
  const int fault = faultOf(call);
  switch (fault) {
    case 0:
      return make();
    case kShort:
      return shorter();
    case kKilledBefore:
      endByKill();
    case kKilledAfter:
      make();
      endByKill();
    default:
      errno = fault;
      if constexpr (std::is_pointer_v<decltype(make())>) {
        return nullptr;
      } else {
        return -1;
      }
  }
}

template <typename Make>
auto through(Call call, Make make) -> decltype(make()) {
  return through(call, make, make);
}

}  // namespace sorvane::test
