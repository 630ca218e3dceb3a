#include "platform/wire/ReplyBuffer.h"

namespace sorvane {

std::size_t ReplyBuffer::countSharedBeyond(std::size_t place) const {
  std::size_t bytes = 0;
  for (const SharedText& each : shared_) {
    if (each.place > place) {
      bytes += each.bytes().size();
    }
  }
  return bytes;
}

}  // namespace sorvane
