#include "platform/ConnectionLimit.h"

#include <algorithm>

#include "platform/host/UsableCores.h"

namespace sorvane {
namespace {

// Descriptors that are left for everything but connections: files, the system's log, Bonjour. Each
// serving thread has a poller besides.
constexpr int kDescriptorsForOthers = 32;
constexpr int kDescriptorsOfAThread = 2;
constexpr std::uint64_t kMostFiles = 1U << 24;  // as good as no limit

}  // namespace

int connectionsWithin(std::uint64_t openFiles, int threads) {
  const int count = threads > 0 ? threads : usableCores();
  const int reserve = kDescriptorsForOthers + kDescriptorsOfAThread * count;
  return std::max(1, static_cast<int>(std::min(openFiles, kMostFiles)) - reserve);
}

}  // namespace sorvane
