// One connection to a server in this process, in the words of the protocol.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/NetConnection.h"
#include "registry/PortDescriptor.h"
#include "support/InProcess.h"

namespace sorvane::test {

/// A peer that has connected; it leaves at the end of its life, or earlier.
class Peer {
 public:
  explicit Peer(NetConnectionDelegate& server) : server_(server) {
    server_.startCommunication(connection_);
  }
  ~Peer() { leaves(); }
  Peer(const Peer&) = delete;
  Peer& operator=(const Peer&) = delete;

  void leaves() {
    if (connected_) {
      connected_ = false;
      server_.endCommunication(connection_);
    }
  }

  /// The reply dictionary, or nothing for nil.
  std::optional<Message> sends(const Message& request) {
    return deliverInProcess(server_, request, connection_);
  }
  /// One text of the reply; "(nil)" for no reply, "(none)" where the reply lacks the key.
  std::string answer(const Message& request, std::string_view key = "result") {
    const auto reply = sends(request);
    if (!reply) {
      return "(nil)";
    }
    return std::string(reply->text(key).value_or("(none)"));
  }
  std::string action(std::string_view word, std::string_view key = "result") {
    return answer({{"action", word}}, key);
  }

  /// What is answered when the server asks once more for the reply to a request that it holds;
  /// "held" when it is held on.
  std::string heldAnswer(bool isLastTime = false) {
    const auto reply = askHeldInProcess(server_, connection_, isLastTime);
    if (reply && reply->contains("held")) {
      return "held";
    }
    return std::string(reply ? reply->text("result").value_or("(none)") : "(nil)");
  }

  /// "newPort"; the number that was handed out.
  std::string asksForPort(std::string_view name, std::string_view host = "hostA",
                          std::string_view type = "db") {
    return answer({{"newPort", ""}, {"portHost", host}, {"portName", name}, {"portType", type}},
                  "portNumber");
  }
  void accepts() { (void)sends({{"acceptPort", ""}}); }
  /// "newPort" and "acceptPort"; the number.
  std::string registers(std::string_view name, std::string_view host = "hostA",
                        std::string_view type = "db") {
    std::string number = asksForPort(name, host, type);
    accepts();
    return number;
  }
  void reconnects(std::string_view name, std::string_view number = "4000") {
    (void)sends({{"reconnectPort", name},
                 {"portNumber", number},
                 {"portHost", "hostA"},
                 {"portType", "db"}});
  }

  /// The number that "findPort" answers; "(none)" when it is not found.
  std::string finds(std::string_view name, std::string_view host = "anywhere") {
    return answer({{"findPort", name}, {"portHost", host}}, "portNumber");
  }

  NetConnection& connection() { return connection_; }
  PortDescriptor& record() { return *connection_.context<PortDescriptor>(); }

 private:
  NetConnectionDelegate& server_;
  InProcessConnection connection_;
  bool connected_ = true;
};

/// The keys of a message in their order, each followed by a blank.
inline std::string keysOf(const std::optional<Message>& message) {
  std::string keys;
  if (message) {
    for (const MessageEntry& entry : message->entries()) {
      keys.append(entry.key).append(" ");
    }
  }
  return keys;
}

}  // namespace sorvane::test
