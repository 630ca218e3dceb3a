// Loaded before the C library into a name server under test: while the file named by
// THROWING_LOG_GATE exists, flushing a stream raises an exception of a class that no command
// raises. The name server flushes its log within commands.
#include <dlfcn.h>
#include <stdio.h>
#include <unistd.h>

#include <cstdlib>
#include <stdexcept>

extern "C" int fflush(FILE* stream) {
  static auto* const next = reinterpret_cast<int (*)(FILE*)>(dlsym(RTLD_NEXT, "fflush"));
  const char* const gate = std::getenv("THROWING_LOG_GATE");
  if (gate != nullptr && ::access(gate, F_OK) == 0) {
    throw std::runtime_error("a foreign exception");
  }
  return next(stream);
}
