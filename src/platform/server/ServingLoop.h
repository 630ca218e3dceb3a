// The loop of one serving thread: it waits for its connections and serves those that are ready.
//
// One turn of the loop:
//
//   +-> wait for events, at most until the next deadline or the end of the acceptor's pause
//   |     |
//   |     |  up to 256 events, one after the other
//   |     |
//   |     +-- a wake-up: connections whose request a waiting thread has delivered are resumed; each
//   |     |     sends its reply and goes on with the requests that came meanwhile. Then the work
//   |     |     that another thread wants performed here, if there is any; and the requests that
//   |     |     were set aside for a pause, if there was none, go to the waiting threads
//   |     |
//   |     +-- the listening socket (one loop has it): the acceptor accepts one connection, or up to
//   |     |     sixteen in a turn of many events, and gives each to the loop with the fewest
//   |     |
//   |     +-- a connection, which handles the event as its phase says; when it reads requests:
//   |     |
//   |     |     receive ----> input(): one buffer for all connections of the loop. If a part of a
//   |     |                   frame had come before, the bytes are appended to that part instead.
//   |     |     for each complete frame:
//   |     |       decode ---> request(): views of the bytes that came
//   |     |       deliver --> output(): the reply, encoded in place
//   |     |     send output(): all replies with one system call
//   |     |     The connection keeps what is left over of input and output.
//   |     |
//   |     |     A request that would have to wait ends the loop over the frames. It goes to a
//   |     |     waiting thread, which causes a wake-up when it has delivered the request. A request
//   |     |     that is held for a change ends it, too.
//   |     v
//   |   connections whose deadline is over: one with an incomplete frame is refused; one that
//   |     lingers, or whose client takes no reply, is closed
//   |   held requests whose time is over: up to 64 are answered
//   |     |
//   |     v
//   |   if something has changed since the last turn: other loops that hold requests and sleep are
//   |     woken, and all requests that this loop holds are to be asked for their reply
//   |     |
//   |     v
//   |   up to 64 held requests that are to be asked: each sends its reply and goes on with the
//   |     requests behind it. If more are left, the next turn does not wait for events.
//   |     |
//   |     v
//   |   if the acceptor's pause is over: it accepts again
//   |     |
//   |     v
//   +-- if a pause of all loops is asked for: the loop stands (ServingPause.h)
#pragma once

#include <atomic>
#include <chrono>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

#include "platform/IPNetwork.h"
#include "platform/Message.h"
#include "platform/NetConnection.h"
#include "platform/OwnAddresses.h"
#include "platform/WorkMarks.h"
#include "platform/server/ByteSum.h"
#include "platform/server/DeadlineQueue.h"
#include "platform/server/HeldRequests.h"
#include "platform/server/Poller.h"
#include "platform/server/ServingPause.h"
#include "platform/server/SleepingLoops.h"
#include "platform/server/UntakenReplies.h"
#include "platform/server/WaitingThreads.h"
#include "platform/wire/ReplyBuffer.h"

namespace sorvane {

class Acceptor;
class ServerConnection;

/// What the loops of a server share.
struct ServerContext {
  NetConnectionDelegate& delegate;
  WaitingThreads& deliveries;  ///< for requests that have to wait
  std::size_t maximumBodyBytes;
  std::chrono::milliseconds partialMessageTimeout;
  const std::vector<IPNetwork> allowedNetworks;  ///< who may connect; empty: everyone
  ByteSum unfinishedInput;                       ///< memory of requests that are kept unhandled
  UntakenTotal untakenReplies;                   ///< memory of replies that clients have not taken
  /// How long a client may take nothing of a reply that is due.
  std::chrono::milliseconds untakenReplyTimeout{300000};
  OwnAddresses ownAddresses{};      ///< these may always connect
  std::atomic<int> connections{0};  ///< open connections of all loops
  const std::atomic<std::uint64_t>& changes = delegate.changes();  ///< what held requests wait for
  SleepingLoops sleepers{};  ///< the loops that hold requests and wait for a change
  ServingPause pause{};
  WorkMarks* const marks = delegate.workMarks();  ///< null: nobody would look at them

  /// Wakes the loops that hold requests, if there was a change that was not announced. Call it on a
  /// thread that is no loop's, when it may have made changes. Any thread, outside all locks.
  void announceChanges() { sleepers.announce(changes.load(std::memory_order_acquire), nullptr); }
};

/// Unless noted otherwise, call these only from the loop's own thread.
class ServingLoop {
 public:
  /// Size of the input buffer.
  static constexpr std::size_t kInputBytes = 64 * 1024;
  /// How long input of a refused connection is read and dropped before it is closed.
  static constexpr std::chrono::milliseconds kLinger{1000};
  /// So many held requests are asked, or ended, in one turn at most. Each costs a system call.
  static constexpr int kHeldAtOnce = 64;

  explicit ServingLoop(ServerContext& context);
  ~ServingLoop();
  ServingLoop(const ServingLoop&) = delete;
  ServingLoop& operator=(const ServingLoop&) = delete;

  /// Serves for ever on the calling thread, which becomes the loop's own. `acceptor` is called when
  /// its listening socket is ready. One loop has the acceptor; it is null for the others.
  [[noreturn]] void run(Acceptor* acceptor);

  /// Takes one turn, for a test that decides what is ready.
  void takeTurn(Acceptor* acceptor);

  /// Takes over the descriptor of a connection. Calls `startCommunication` on the calling thread,
  /// then begins to watch the connection. Raises `std::bad_alloc` and leaves the descriptor alone
  /// if there is no memory for a connection. Any thread.
  void adopt(int descriptor);

  /// Takes over a connection that was made for this loop. It is counted. The loop must not run yet.
  /// Raises `std::bad_alloc` and leaves `connection` alone if there is no memory.
  void take(std::unique_ptr<ServerConnection>& connection);
  /// Has a request held that was held in another program. It is asked in the first turn, and ends
  /// when `left` is over. Those of a loop must come in the order of their ends. The loop must not
  /// run yet.
  void holdOn(HeldRequest& request, std::chrono::milliseconds left);
  /// Calls `use` with each connection. Call it during a pause, or before the loop runs.
  void forEachConnection(const std::function<void(ServerConnection&)>& use);

  /// Takes back a connection after a waiting thread has delivered its request. Any thread.
  void delivered(ServerConnection& connection);

  /// Keeps a connection, whose next request has to wait, until the pause that is wanted is over.
  void setAside(ServerConnection& connection) { aside_.push_back(&connection); }

  /// Ends the wait of the poller. Any thread.
  void wake() { poller_.wake(); }

  /// Calls `work` in the next turn, on the loop's own thread. The work must not wait, and belongs
  /// to the caller. The loop takes one work at a time: wait for its call before the next. Any
  /// thread.
  void perform(const std::function<void()>& work);

  /// Holds a request until a change, or until `time` is over. `isAskedHere` tells that this thread
  /// has asked for its reply in this turn.
  void hold(HeldRequest& request, std::chrono::seconds time, bool isAskedHere);

  /// Number of connections of this loop. Any thread.
  [[nodiscard]] int load() const { return load_.load(std::memory_order_relaxed); }

  /// Destroys a connection.
  void forget(ServerConnection& connection);

  [[nodiscard]] ServerContext& context() { return context_; }
  [[nodiscard]] Poller& poller() { return poller_; }
  // Buffers for the connection that is being served.
  [[nodiscard]] char* input() { return input_.get(); }
  [[nodiscard]] ReplyBuffer& output() { return output_; }
  [[nodiscard]] Message& request() { return request_; }

  /// Deadlines of connections that have sent a part of a frame.
  [[nodiscard]] DeadlineQueue& partialFrames() { return partialFrames_; }
  /// Deadlines of connections whose client must take something of a reply.
  [[nodiscard]] DeadlineQueue& untakenReplies() { return untakenReplies_; }
  /// Deadlines of connections that linger.
  [[nodiscard]] DeadlineQueue& lingerers() { return lingerers_; }

  /// Returns true if the calling thread runs a loop. Any thread.
  [[nodiscard]] static bool isServingThread();

 private:
  /// Calls `step`, which serves the connection. If the memory runs out, only the connection is
  /// closed.
  template <typename Step>
  void serve(ServerConnection& connection, Step step);
  /// Returns how long the poller may wait for events, milliseconds or `Poller::kForever`.
  [[nodiscard]] int waitingTime(const Acceptor* acceptor);
  void expireDeadlines();
  void expireHeld();
  /// Announces the changes since the last call, and has the held requests asked because of them.
  void noteChanges();
  /// Asks some of the held requests that are to be asked.
  void askHeld();
  /// Returns the place for a connection of that descriptor. mutex_ is held.
  [[nodiscard]] std::unique_ptr<ServerConnection>& placeFor(int descriptor);
  void countOne();
  void handleWakeUp();
  void resumeDelivered();
  /// Hands the requests that were set aside to the waiting threads.
  void deliverAside();
  /// Makes all connections ready for a pause in which nothing is delivered.
  void settle();

  ServerContext& context_;
  Poller poller_;
  std::uint64_t turn_ = 0;  // which turn this is; the first is 1
  DeadlineQueue partialFrames_;
  DeadlineQueue untakenReplies_;
  DeadlineQueue lingerers_;
  HeldRequests held_;
  // The changes that this loop knows of, and those that its held requests were asked for, but for
  // requests that are still to be asked.
  std::uint64_t known_ = 0;
  std::uint64_t told_ = 0;
  SleepingLoops::Sleeper sleeper_{poller_};
  const std::unique_ptr<char[]> input_;
  ReplyBuffer output_;
  Message request_;
  std::vector<ServerConnection*> aside_;  // with a request for a waiting thread, before a pause
  std::atomic<int> load_{0};
  std::atomic<const std::function<void()>*> toPerform_{nullptr};

  std::mutex mutex_;
  std::vector<ServerConnection*> delivered_;                    // guarded by mutex_
  std::vector<std::unique_ptr<ServerConnection>> connections_;  // by descriptor; guarded by mutex_
};

}  // namespace sorvane
