#include "platform/server/HandingOn.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>

#include "platform/server/ContinuedConnections.h"
#include "platform/server/ServerConnection.h"

namespace sorvane::test {

Descriptor listeningSocket() {
  Descriptor listener(socket(AF_INET, SOCK_STREAM, 0));
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  EXPECT_EQ(bind(listener.number(), reinterpret_cast<sockaddr*>(&address), sizeof address), 0);
  EXPECT_EQ(listen(listener.number(), 1), 0);
  return listener;
}

std::string whole(const KeptWriter& writer) { return writer.header() + std::string(writer.body()); }

void readAll(const std::string& description, ServedByHand& server) {
  KeptReader reader(description);
  const KeptServer kept = readKeptServer(reader);
  checkKeptDescriptors(kept);
  continueConnections(kept, &reader, server.loops(), server.context());
}

std::string HandingOn::keeps(ServedByHand& server) const {
  KeptWriter writer;
  keepConnections(writer, listener_.number(), server.loops(), server.context());
  for (const auto& loop : server.loops()) {
    loop->forEachConnection([](ServerConnection& each) { each.release(); });
  }
  return whole(writer);
}

std::string HandingOn::describes(const std::vector<KeptConnection>& connections) const {
  KeptWriter writer;
  KeptConnectionWriter all(writer, listener_.number(), connections.size());
  for (const KeptConnection& each : connections) {
    all.write(each);
  }
  for (std::size_t i = 0; i < connections.size(); ++i) {
    writer.number(0);  // the part of the delegate: no change was seen
  }
  return whole(writer);
}

}  // namespace sorvane::test
