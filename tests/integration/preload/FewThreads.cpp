// Loaded before the C library into a name server under test: a system that gives only so many
// threads, as the environment says.
#include <dlfcn.h>
#include <pthread.h>

#include <atomic>
#include <cerrno>
#include <cstdlib>

extern "C" int pthread_create(pthread_t* thread, const pthread_attr_t* attributes,
                              void* (*start)(void*), void* argument) noexcept {
  static auto* const next =
      reinterpret_cast<decltype(&pthread_create)>(dlsym(RTLD_NEXT, "pthread_create"));
  static std::atomic<int> left = std::atoi(std::getenv("SORVANE_TEST_THREADS"));
  return left-- > 0 ? next(thread, attributes, start, argument) : EAGAIN;
}
