#include "platform/host/LockHolder.h"

namespace sorvane {

std::optional<LockHolder> holderOfLock(dev_t /*device*/, ino_t /*file*/,
                                       std::optional<int> /*written*/) {
  return std::nullopt;
}

}  // namespace sorvane
