#include "platform/server/SocketCalls.h"

#include <sys/socket.h>

#include <algorithm>
#include <array>

#include "platform/WithoutInterruption.h"
#include "platform/server/SystemCalls.h"

namespace sorvane {
namespace {

// More than the replies of one read with their lists have, as a rule.
constexpr std::size_t kPiecesAtOnce = 64;

}  // namespace

int acceptConnection(int listener) {
  return withoutInterruption([&] { return systemcall::accept(listener); });
}

ssize_t sendBytes(int descriptor, std::string_view bytes) {
  return withoutInterruption([&] { return systemcall::send(descriptor, bytes); });
}

ssize_t sendReplies(int descriptor, const ReplyBuffer& replies, std::size_t from) {
  if (replies.shared().empty()) {
    return sendBytes(descriptor, replies.own().view().substr(from));
  }
  std::array<iovec, kPiecesAtOnce> pieces;
  std::size_t count = 0;
  replies.forEachPiece([&](std::string_view piece) {
    const std::size_t passed = std::min(from, piece.size());
    from -= passed;
    piece.remove_prefix(passed);
    if (!piece.empty() && count < pieces.size()) {
      pieces[count++] = {const_cast<char*>(piece.data()), piece.size()};
    }
  });
  msghdr message{};
  message.msg_iov = pieces.data();
  message.msg_iovlen = static_cast<decltype(message.msg_iovlen)>(count);
  return withoutInterruption([&] { return systemcall::send(descriptor, message); });
}

ssize_t receiveBytes(int descriptor, char* buffer, std::size_t bytes) {
  return withoutInterruption([&] { return systemcall::receive(descriptor, buffer, bytes); });
}

void closeSocket(int descriptor) { systemcall::close(descriptor); }

}  // namespace sorvane
