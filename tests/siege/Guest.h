// A client that means well, and how long its requests take.
#pragma once

#include <chrono>
#include <optional>
#include <string>
#include <vector>

#include "platform/Message.h"
#include "siege/Peer.h"
#include "support/WaitUntil.h"

namespace sorvane::siege {

/// Registers databases, looks them up, watches them come and go, and looks at every reply. Not for
/// several threads.
class Guest {
 public:
  explicit Guest(int port) : port_(port), tool_(port, test::kPatience) {}

  /// One round: a database comes and goes. `what` tells them apart.
  void visit(const std::string& name);

  /// The time that one request in a hundred exceeds, in microseconds. Forgets the times.
  [[nodiscard]] double takeSlowest();
  /// Number of requests so far.
  [[nodiscard]] long requests() const { return requests_; }
  /// What was wrong first; empty while all is well.
  [[nodiscard]] const std::string& complaint() const { return complaint_; }

 private:
  std::optional<Message> ask(Peer& peer, const Message& request);
  void expect(bool well, const std::string& what);

  const int port_;
  Peer tool_;
  std::vector<double> times_;  // microseconds
  long requests_ = 0;
  std::string complaint_;
  std::string body_;  // of the last reply
};

}  // namespace sorvane::siege
