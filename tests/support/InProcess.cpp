#include "support/InProcess.h"

#include <stdexcept>
#include <string>

namespace sorvane::test {

namespace {

/// Returns the dictionary of the reply that `deliver` returns.
template <typename Deliver>
std::optional<Message> dictionaryOf(Deliver deliver, const Message& request,
                                    InProcessConnection& sender) {
  ReplyBuffer written;
  sender.setReplyBuffer(&written);
  const Reply reply = deliver();
  sender.setReplyBuffer(nullptr);
  switch (reply.kind()) {
    case Reply::Kind::request:
      return request.owned();
    case Reply::Kind::none:
      return std::nullopt;
    case Reply::Kind::held:
      return Message({{"held", std::to_string(reply.time().count())}});
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

}  // namespace

std::optional<Message> deliverInProcess(NetConnectionDelegate& delegate, const Message& request,
                                        InProcessConnection& sender) {
  return dictionaryOf([&] { return delegate.deliverCommunication(request, sender); }, request,
                      sender);
}

std::optional<Message> askHeldInProcess(NetConnectionDelegate& delegate,
                                        InProcessConnection& sender, bool isLastTime) {
  return dictionaryOf([&] { return delegate.deliverHeld(sender, isLastTime); }, Message(), sender);
}

}  // namespace sorvane::test
