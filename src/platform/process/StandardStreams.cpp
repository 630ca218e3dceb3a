#include "platform/StandardStreams.h"

#include <fcntl.h>
#include <unistd.h>

#include <initializer_list>

namespace sorvane {

void openClosedStandardStreams() {
  for (const int stream : {STDIN_FILENO, STDOUT_FILENO, STDERR_FILENO}) {
    // The lowest free number is this one. It deliberately stays open in programs that are started.
    if (fcntl(stream, F_GETFD) == -1 && open("/dev/null", O_RDWR) == -1) {
      return;
    }
  }
}

}  // namespace sorvane
