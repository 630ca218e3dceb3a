// A server in this process whose delegate does what each request tells it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <future>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "platform/NetConnection.h"
#include "platform/RunningServer.h"
#include "platform/Settings.h"
#include "support/ConsoleLines.h"
#include "support/RawConnection.h"

namespace sorvane::test {

/// The requests that it understands, each by the presence of a key:
///   "echo" returns the request itself; "nil" returns nil; "big" (a number) returns {"data": so
///   many bytes}; "shared" returns {"text": `sharedText`}; "count" returns {"result": how many were
///   delivered before}; "wait" cannot be delivered without waiting, and waits until `openGate`;
///   "log" and "preferences" wait for that where the disk of that name is waited for; "stop" waits
///   for that on the serving thread, as no delegate may; "raise" raises what a command may raise;
///   "raiseOther" raises what it may not; "change" makes a change; "hold" (seconds) is held until
///   there was a change since the last "hold" of the connection began, and returns {"result":
///   "changed", or "over" the last time}. Anything else returns an empty dictionary. A request for
///   a waiting thread does what it does before it waits.
class ScriptedDelegate : public NetConnectionDelegate {
 public:
  explicit ScriptedDelegate(WorkMarks* marks = nullptr) : marks_(marks) {}

  void servingBegins(RunningServer& server) override { running_.set_value(&server); }
  void startCommunication(NetConnection& connection) override;
  std::optional<Reply> deliverWithoutWaiting(const Message& request, NetConnection& sender,
                                             Turn& turn) override;
  Delivery deliverWithoutDisk(const Message& request, NetConnection& sender) override;
  Reply deliverCommunication(const Message& request, NetConnection& sender) override;
  [[nodiscard]] const std::atomic<std::uint64_t>& changes() const override { return changesMade; }
  Reply deliverHeld(NetConnection& sender, bool isLastTime) override;
  void keepConnection(NetConnection& connection, KeptWriter& writer) override;
  void restoreConnection(NetConnection& connection, KeptReader& reader) override;
  void endCommunication(NetConnection& connection) override;
  [[nodiscard]] WorkMarks* workMarks() override { return marks_; }

  /// Waits until the server serves.
  [[nodiscard]] RunningServer& running() const { return *server_.get(); }
  void openGate();
  /// Waits until so many requests are inside the gate or have passed it.
  [[nodiscard]] bool arriveAtGate(int requests);
  /// Waits until so many connections have ended.
  [[nodiscard]] bool seeEndsOf(int connections);

  /// The text that the replies to "shared" have in common.
  const std::shared_ptr<const std::string> sharedText =
      std::make_shared<const std::string>(600000, 's');

  std::atomic<int> started{0};
  std::atomic<int> restored{0};
  std::atomic<int> delivered{0};
  /// Those among them that no other thread than the serving one has delivered.
  std::atomic<int> deliveredWithoutWaiting{0};
  std::atomic<int> ended{0};
  std::atomic<std::uint64_t> changesMade{0};
  /// How often a reply to a held request was asked for.
  std::atomic<int> askedHeld{0};
  /// Called with each request that a serving thread delivers, if it is set.
  std::function<void()> whenDelivered;
  /// How many milliseconds a request for a disk takes.
  std::atomic<int> diskTime{0};
  /// How often two operations of one connection ran at once, or out of order.
  std::atomic<int> overlaps{0};

 private:
  void waitAtGate();
  Reply answer(const Message& request, NetConnection& sender);
  /// Returns the reply of a connection that waits for a change.
  [[nodiscard]] Reply answerHeld(NetConnection& sender, bool isLastTime) const;

  WorkMarks* const marks_;
  std::promise<RunningServer*> running_;
  const std::shared_future<RunningServer*> server_ = running_.get_future().share();
  std::mutex mutex_;
  std::condition_variable changed_;  // also when `ended` grows
  bool gateIsOpen_ = false;          // guarded by mutex_
  int atGate_ = 0;                   // guarded by mutex_
};

/// Serves on a free port of 127.0.0.1 from its making; for ever, since a server does not end:
/// whatever it needs is left to the process.
class ServedDelegate {
 public:
  explicit ServedDelegate(Settings settings = {});
  /// Pauses `before` for ever, and goes on with its socket and its connections.
  ServedDelegate(const ServedDelegate& before, Settings settings);

  [[nodiscard]] ScriptedDelegate& delegate() { return *delegate_; }
  [[nodiscard]] RunningServer& running() const { return delegate_->running(); }
  [[nodiscard]] RawConnection connect() const { return RawConnection(port_); }
  [[nodiscard]] int port() const { return port_; }

 private:
  ScriptedDelegate* const delegate_;
  int port_ = 0;
};

}  // namespace sorvane::test
