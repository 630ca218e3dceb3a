#include "driver/Exchange.h"

#include "driver/Socket.h"
#include "platform/Frame.h"
#include "platform/Message.h"

namespace sorvane::bench {
namespace {

constexpr std::string_view kName = "customers";
constexpr std::string_view kHost = "host7";
constexpr std::string_view kAddress = "192.0.2.10";
constexpr std::string_view kType = "sorvane";

std::string frame(const Message& message) {
  ByteBuffer bytes;
  appendFrame(bytes, message.body());
  return std::string(bytes.view());
}

}  // namespace

Exchange pipelined(const Exchange& one, int depth) {
  Exchange result;
  for (int i = 0; i < depth; ++i) {
    result.request += one.request;
    result.reply += one.reply;
  }
  result.operations = one.operations * depth;
  return result;
}

namespace sorvane_requests {

std::string ping() { return frame(Message{{"ping", ""}}); }

std::string findPort() {
  return frame(Message{{"findPort", kName}, {"portHost", kHost}, {"portHostAddress", kAddress}});
}

std::string newPort() { return newPort(kName); }

std::string newPort(std::string_view name) {
  return frame(Message{{"newPort", ""},
                       {"portName", name},
                       {"portHost", kHost},
                       {"portHostAddress", kAddress},
                       {"portType", kType}});
}

std::string acceptPort() { return frame(Message{{"acceptPort", ""}}); }

}  // namespace sorvane_requests

Exchange learn(int port, const std::string& request) {
  const Socket socket = connectTo(port);
  socket.sendAll(request);
  return {request, socket.receiveFrame(), 1};
}

}  // namespace sorvane::bench
