// What a server calls for its connections.
#pragma once

#include <atomic>
#include <cstdint>
#include <optional>

#include "platform/Delivery.h"
#include "platform/Message.h"
#include "platform/Reply.h"
#include "platform/Turn.h"

namespace sorvane {

class KeptReader;
class KeptWriter;
class NetConnection;
class RunningServer;
class WorkMarks;

/// For each connection the server calls `startCommunication`, then delivers each message in order,
/// then calls `endCommunication` exactly once. It never makes two of these calls at the same time
/// for one connection. Different connections are served at the same time. An exception that leaves
/// one of these functions ends the process; NSException from a delivery is the exception: the reply
/// is then nil.
class NetConnectionDelegate {
 public:
  virtual ~NetConnectionDelegate() = default;

  /// Called once, before any connection but those that are restored, when everything that serves
  /// has been made: the calling thread is about to become the last serving thread. Must return
  /// soon. An exception that leaves it leaves `runServerForSocket`, too.
  virtual void servingBegins(RunningServer& /*server*/) {}

  virtual void startCommunication(NetConnection& connection) = 0;

  /// Delivers a request on a serving thread, which must not wait for a lock, a disk or a console.
  /// Returns nothing when it would have had to wait. The server then delivers the same request with
  /// `deliverWithoutDisk`.
  virtual std::optional<Reply> deliverWithoutWaiting(const Message& /*request*/,
                                                     NetConnection& /*sender*/, Turn& /*turn*/) {
    return std::nullopt;
  }

  /// Delivers a request on one of a few threads that may wait for a lock, but not for a disk. The
  /// server does what is left to do on the disk's own thread. Without an implementation,
  /// `deliverCommunication` is called.
  virtual Delivery deliverWithoutDisk(const Message& request, NetConnection& sender) {
    return deliverCommunication(request, sender);
  }

  /// Delivers a request whole; may wait. The request, and what `replyWriter` wrote, stay valid
  /// until the next delivery.
  virtual Reply deliverCommunication(const Message& request, NetConnection& sender) = 0;

  // ---- Held requests: a delivery may return `Reply::held`. The server then delivers nothing else
  // of the connection until the request is answered.

  /// Counts the changes that held requests wait for. Each change adds to it, with
  /// `std::memory_order_release`, in a call of this delegate; so no change is missed. The server
  /// asks for the reference once.
  [[nodiscard]] virtual const std::atomic<std::uint64_t>& changes() const {
    static constinit const std::atomic<std::uint64_t> none = 0;
    return none;
  }

  /// Asks again for the reply to the request that is held: because there was a change, or for the
  /// last time, because its time is over or the peer sends nothing more. Called on a serving
  /// thread, outside all locks; must not wait. Returns `Reply::held` to leave the request as it is,
  /// with whatever time; the last time, that is a nil reply. There is no request any more to
  /// return.
  virtual Reply deliverHeld(NetConnection& /*sender*/, bool /*isLastTime*/) {
    return Reply::none();
  }

  /// Called before the connection closes, on a serving thread. Hands work that may wait to
  /// `NetConnection::performWaiting`.
  virtual void endCommunication(NetConnection& connection) = 0;

  // ---- Handing on to another program. A connection for which `endCommunication` was called has no
  // part in it.

  /// Writes what the delegate keeps with a connection. Called during a pause, on the thread that
  /// pauses.
  virtual void keepConnection(NetConnection& /*connection*/, KeptWriter& /*writer*/) {}

  /// Reads what `keepConnection` has written, instead of a call of `startCommunication`. Called
  /// before `servingBegins`. The connection may be asked where its peer is. If this raises, there
  /// will be no server: the connections are given up without a further call. Without an
  /// implementation, the connection is taken for a new one.
  virtual void restoreConnection(NetConnection& connection, KeptReader& /*reader*/) {
    startCommunication(connection);
  }

  // ---- Going on after a death

  /// Returns where the server notes which connections are at work, for a process that goes on when
  /// this one dies; null: nowhere. The server asks for it once, and it outlives the server.
  [[nodiscard]] virtual WorkMarks* workMarks() { return nullptr; }
  /// Called for a connection that goes on after the death of the process that served it, instead of
  /// a call of `startCommunication`; otherwise the same as `restoreConnection`.
  virtual void reviveConnection(NetConnection& connection) { startCommunication(connection); }

  virtual void cleanupAfterMessage() {}
  [[nodiscard]] virtual bool reconnect() { return false; }
  [[nodiscard]] virtual bool lazyreconnect() { return false; }
};

}  // namespace sorvane
