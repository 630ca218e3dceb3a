#include "support/InProcess.h"

#include <stdexcept>

namespace sorvane::test {

std::optional<Message> deliverInProcess(NetConnectionDelegate& delegate, const Message& request,
                                        InProcessConnection& sender) {
  ByteBuffer body;
  sender.setReplyBuffer(&body);
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
  Message view;
  if (const char* const fault = view.readBody(body.view())) {
    throw std::logic_error(fault);
  }
  return view.owned();
}

}  // namespace sorvane::test
