#include "support/InProcess.h"

#include <stdexcept>

namespace sorvane::test {

std::optional<Message> deliverInProcess(NetConnectionDelegate& delegate, const Message& request,
                                        InProcessConnection& sender) {
  ReplyBuffer written;
  sender.setReplyBuffer(&written);
  const Reply reply = delegate.deliverCommunication(request, sender);
  sender.setReplyBuffer(nullptr);
  switch (reply.kind()) {
    case Reply::Kind::request:
      return request.owned();
    case Reply::Kind::none:
      return std::nullopt;
    case Reply::Kind::written:
      break;
  }
  std::string body;
  written.forEachPiece([&](std::string_view piece) { body += piece; });
  Message view;
  if (const char* const fault = view.readBody(body)) {
    throw std::logic_error(fault);
  }
  return view.owned();
}

}  // namespace sorvane::test
