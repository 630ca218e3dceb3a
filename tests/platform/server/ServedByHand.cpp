#include "platform/server/ServedByHand.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <system_error>

#include "platform/server/WaitingThreads.h"

namespace sorvane::test {
namespace {

/// Never destroyed, as waiting threads must be.
WaitingThreads& waitingThreads() {
  static auto* const threads = new WaitingThreads(4);
  return *threads;
}

}  // namespace

SocketPair::SocketPair() {
  int ends[2];
  if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) {
    throw std::system_error(errno, std::generic_category(), "socketpair");
  }
  server = Descriptor(ends[0]);
  client = Descriptor(ends[1]);
  for (const int end : ends) {
    fcntl(end, F_SETFD, FD_CLOEXEC);
  }
  fcntl(server.number(), F_SETFL, O_NONBLOCK);
}

ServedByHand::ServedByHand(const HandLimits& limits)
    : delegate_(limits.marks),
      context_{delegate_,
               waitingThreads(),
               Settings().maxMessageBytes,
               limits.partialMessage,
               {},
               ByteSum(limits.unfinishedBytes),
               UntakenTotal(limits.unsentBytes),
               limits.untakenReply} {
  for (int i = 0; i < limits.loops; ++i) {
    loops_.push_back(std::make_unique<ServingLoop>(context_));
  }
}

RawConnection ServedByHand::connect() {
  SocketPair pair;
  loop().adopt(pair.server.release());
  return RawConnection::ofSocket(pair.client.release());
}

std::string ServedByHand::receives(RawConnection& client, std::size_t count) {
  std::string bytes;
  std::string part(1 << 16, ' ');
  while (bytes.size() < count) {
    const ssize_t came = recv(client.descriptor(), part.data(),
                              std::min(part.size(), count - bytes.size()), MSG_DONTWAIT);
    if (came > 0) {
      bytes.append(part, 0, static_cast<std::size_t>(came));
    } else if (came == 0) {
      break;
    } else {
      turn();
    }
  }
  return bytes;
}

}  // namespace sorvane::test
