#include <errno.h>

#include <system_error>

#include "platform/SharedDescriptors.h"

namespace sorvane {
namespace {

[[noreturn]] void raiseThatThereIsNone() {
  throw std::system_error(ENOSYS, std::generic_category(), "shared descriptors");
}

}  // namespace

std::optional<int> cloneSharingDescriptors(const std::function<void()>& /*body*/) {
  errno = ENOSYS;
  return std::nullopt;
}

std::vector<int> openDescriptors() { raiseThatThereIsNone(); }

void closeDescriptorsExcept(std::vector<int> /*kept*/) { raiseThatThereIsNone(); }

}  // namespace sorvane
