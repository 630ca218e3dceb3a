#include "platform/RecordedSockets.h"

#include <dlfcn.h>
#include <errno.h>

#include <algorithm>
#include <iterator>
#include <mutex>

namespace sorvane::test {

namespace {

std::mutex mutex;
// Guarded by the mutex.
bool recording = false;
std::optional<int> refusedFamily;
int refusal = 0;
std::vector<SocketRequest>* requests = nullptr;  // never destroyed: threads may outlive main

/// Returns the error of this call; 0 lets it through.
int noted(int family, int type) {
  const std::lock_guard<std::mutex> hold(mutex);
  if (!recording) {
    return 0;
  }
  requests->push_back({family, type});
  return refusedFamily == family ? refusal : 0;
}

}  // namespace

RecordedSockets::RecordedSockets() {
  const std::lock_guard<std::mutex> hold(mutex);
  if (requests == nullptr) {
    requests = new std::vector<SocketRequest>;
  }
  requests->clear();
  recording = true;
}

RecordedSockets::~RecordedSockets() {
  const std::lock_guard<std::mutex> hold(mutex);
  recording = false;
  refusedFamily.reset();
}

void RecordedSockets::refuse(int family, int error) {
  const std::lock_guard<std::mutex> hold(mutex);
  refusedFamily = family;
  refusal = error;
}

std::vector<SocketRequest> RecordedSockets::all() const {
  const std::lock_guard<std::mutex> hold(mutex);
  return *requests;
}

std::vector<SocketRequest> RecordedSockets::of(int family) const {
  std::vector<SocketRequest> found;
  std::ranges::copy_if(all(), std::back_inserter(found),
                       [=](const SocketRequest& each) { return each.family == family; });
  return found;
}

}  // namespace sorvane::test

// Takes the place of the C library's own in this program.
extern "C" int socket(int family, int type, int protocol) noexcept {
  using Socket = int (*)(int, int, int);
  static const auto open = reinterpret_cast<Socket>(dlsym(RTLD_NEXT, "socket"));
  if (const int error = sorvane::test::noted(family, type); error != 0) {
    errno = error;
    return -1;
  }
  return open(family, type, protocol);
}
