#include "platform/Descriptor.h"

#include <errno.h>
#include <unistd.h>

namespace sorvane {

void Descriptor::closeNumber(int number) {
  const int reason = errno;
  ::close(number);  // never repeated: after an interruption the number may be another file's
  errno = reason;
}

}  // namespace sorvane
