// Servers by hand that hand their connections on to each other.
#pragma once

#include <string>
#include <vector>

#include "platform/Descriptor.h"
#include "platform/KeptForm.h"
#include "platform/server/KeptServer.h"
#include "platform/server/ServedByHand.h"
#include "support/RawConnection.h"

namespace sorvane::test {

/// Listens on a free port of 127.0.0.1.
[[nodiscard]] Descriptor listeningSocket();

/// What was written, as the next program gets it.
[[nodiscard]] std::string whole(const KeptWriter& writer);

/// A server goes on with the connections of a description.
void readAll(const std::string& description, ServedByHand& server);

/// Hands the connections of one server by hand on to another.
class HandingOn {
 public:
  /// Returns what the server hands on. It has no connection any more then.
  [[nodiscard]] std::string keeps(ServedByHand& server) const;
  void handOn(ServedByHand& from, ServedByHand& to) const { readAll(keeps(from), to); }
  /// Returns a description of connections that a test has made.
  [[nodiscard]] std::string describes(const std::vector<KeptConnection>& connections) const;

 private:
  const Descriptor listener_ = listeningSocket();
};

/// A connection that is made for a test, and its client.
struct Made {
  explicit Made(KeptConnection::Phase phase)
      : client(RawConnection::ofSocket(pair.client.release())) {
    kept.descriptor = pair.server.release();
    kept.phase = phase;
  }
  SocketPair pair;
  RawConnection client;
  KeptConnection kept;
};

}  // namespace sorvane::test
