#include "sorvctl/Terminal.h"

#include <sys/ioctl.h>
#include <unistd.h>

namespace sorvctl {

std::optional<std::size_t> terminalWidth(int descriptor) {
  winsize size{};
  if (isatty(descriptor) == 0 || ioctl(descriptor, TIOCGWINSZ, &size) != 0 || size.ws_col == 0) {
    return std::nullopt;
  }
  return size.ws_col;
}

}  // namespace sorvctl
