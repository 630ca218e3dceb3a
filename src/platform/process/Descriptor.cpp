#include "platform/Descriptor.h"

#include <errno.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>

#include "platform/WithoutInterruption.h"

namespace sorvane {

void Descriptor::closeNumber(int number) {
  const int reason = errno;
  ::close(number);  // never repeated: after an interruption the number may be another file's
  errno = reason;
}

std::size_t endOfDescriptors() {
  constexpr rlim_t kMost = rlim_t{1} << 20;
  rlimit limit{};
  return getrlimit(RLIMIT_NOFILE, &limit) == 0 ? std::min(limit.rlim_cur, kMost) : kMost;
}

std::error_code writeAll(int descriptor, std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t written =
        withoutInterruption([&] { return ::write(descriptor, bytes.data(), bytes.size()); });
    if (written == -1) {
      return {errno, std::generic_category()};
    }
    bytes.remove_prefix(static_cast<std::size_t>(written));
  }
  return {};
}

}  // namespace sorvane
