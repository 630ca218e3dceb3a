#include "driver/Exchange.h"

#include <utility>

#include "driver/Socket.h"
#include "platform/Message.h"
#include "platform/wire/Frame.h"

namespace sorvane::bench {
namespace {

constexpr std::string_view kHost = "host7";
constexpr std::string_view kAddress = "192.0.2.10";
constexpr std::string_view kType = "sorvane";
constexpr std::string_view kNumber = "20000";

std::string frame(const Message& message) {
  ByteBuffer bytes;
  appendFrame(bytes, message.body());
  return std::string(bytes.view());
}

}  // namespace

Exchange pipelined(const Exchange& one, int depth) {
  return joined(std::vector<Exchange>(static_cast<std::size_t>(depth), one));
}

Exchange joined(const std::vector<Exchange>& parts) {
  Exchange result{{}, {}, 0};
  for (const Exchange& part : parts) {
    result.request += part.request;
    result.reply += part.reply;
    result.operations += part.operations;
  }
  return result;
}

namespace sorvane_requests {

std::string ping() { return frame(Message{{"ping", ""}}); }

std::string findPort() { return findPort(kName); }

std::string findPort(std::string_view name) {
  return frame(Message{{"findPort", name}, {"portHost", kHost}, {"portHostAddress", kAddress}});
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

std::vector<std::string> registration(int connection) {
  return {newPort("connect" + std::to_string(connection)), acceptPort()};
}

std::string setDatabaseState(std::string_view name, std::string_view state) {
  return frame(Message{{"action", "setDatabaseState"}, {"databaseName", name}, {"state", state}});
}

std::string didPortsChange() { return frame(Message{{"action", "didPortsChange"}}); }

std::string awaitPortChanges() {
  return frame(Message{{"action", "awaitPortChanges"}, {"timeout", "300"}});
}

std::string continuity() { return frame(Message{{"action", "continuity"}}); }

Exchange refresh() { return {frame(Message{{"action", "needsRefresh"}}), result("success"), 1}; }

std::string result(std::string_view text) { return frame(Message{{"result", text}}); }

std::string reconnectPort(std::string_view name) {
  return frame(Message{
      {"reconnectPort", name}, {"portNumber", kNumber}, {"portHost", kHost}, {"portType", kType}});
}

Exchange findReconnected(std::string_view name, std::string_view latest) {
  return {findPort(name),
          frame(Message{{"portNumber", kNumber},
                        {"portName", latest},
                        {"portHostAddress", kAddress},
                        {"portHost", kHost},
                        {"portType", kType}}),
          1};
}

}  // namespace sorvane_requests

Exchange recordExchange(int port, const std::string& request) {
  const Socket socket = connectTo(port);
  socket.sendAll(request);
  return {request, socket.receiveFrame(), 1};
}

std::vector<Cycle> recordCycles(int port, const CycleRequests& requests) {
  constexpr int kConnections = 8;
  constexpr std::size_t kMarkVersionKind = 4;
  std::vector<Cycle> cycles;
  for (int i = 0; i < kConnections; ++i) {
    Cycle cycle;
    const Socket socket = connectTo(port);
    for (const std::string& request : requests(i)) {
      socket.sendAll(request);
      const std::string reply = socket.receiveFrame();
      const bool fixed = request.find("newPort") == std::string::npos;
      cycle.push_back({request, reply, fixed ? reply.size() : kMarkVersionKind});
    }
    cycles.push_back(std::move(cycle));
  }
  return cycles;
}

}  // namespace sorvane::bench
