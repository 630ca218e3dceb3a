// One connection of the server: its descriptor, the requests that are not handled yet, and the
// replies that are not sent yet.
//
// A connection is in one of five phases. `serve` is not a phase: it delivers the complete frames
// that are there, sends the replies, and chooses the next phase.
//
//        start
//          |
//          v            bytes came
//   +-> reading --------------------------> serve <--------------------------+
//   |                                         |                              |
//   |                                         |  1                 all sent  |
//   |                                         +-----> sending ---------------+
//   |                                         |         ^                    |
//   |                                         |         | 6                  |
//   |                                         |  2      |        reply sent  |
//   |                                         +-----> delivering ------------+
//   |                                         |
//   |                                         |  3                reply sent  |
//   |                                         +-----> holding ---------------+
//   |                                         |
//   |                                         |  4
//   |                                         +-----> lingering ---> closed
//   |                                         |
//   +-----------------------------------------+  5
//
// The first of these that is true decides what follows `serve`:
//   1  The peer did not take all replies, or the replies so far are so long that the loop's other
//      connections get their turn before the next request is delivered.
//   2  The next request must wait, for instance for a lock, or it is so long that reading it would
//      keep the loop's other connections waiting: it goes to a waiting thread. From there it goes
//      on to the thread of a disk, if it needs that disk. While a pause is wanted, it stays here.
//   3  The next request is held: its reply comes when something changes, when its time is over, or
//      when the peer sends nothing more, or a bad header. What comes behind it is kept as leftover
//      input: one frame of the longest kind has room.
//   4  The next frame is malformed, or cannot be kept: the unhandled input of all connections
//      together would hold more memory than the settings allow. The replies so far are sent first.
//   5  No complete frame is left.
// Further transitions:
//   6  The waiting thread is done, and the peer did not take the whole reply.
//   delivering -> sending   All is sent, but a pause is wanted: nothing is delivered before it is
//                           over.
//   delivering -> holding   The waiting thread has delivered a request that is held.
//   holding -> sending      The peer did not take the whole reply.
//   sending -> lingering    All is sent, and a malformed frame had been found before.
//   delivering -> lingering The waiting thread has found the frame malformed.
//   reading -> lingering    A frame was not complete within the time that the settings allow.
//   start -> closed         The poller refused the descriptor.
//   reading -> closed       The peer closed the connection, or receiving or sending failed.
//   holding -> lingering    What came behind the request is not complete in time, or cannot be
//                           kept. The reply is sent first.
//   holding -> closed       Receiving or sending failed.
//   serve -> closed         The replies cannot be kept: those that clients have not taken yet would
//                           hold more memory than the settings allow all connections together.
//   sending -> closed       Sending failed, or the peer has taken nothing for too long.
//   any phase -> closed     The poller refused to watch for what the next phase needs.
//   delivering -> closed    The waiting thread is done, and its reply cannot be kept, sending it
//                           failed, or the poller refused the descriptor.
//   any phase -> closed     There is no memory for what the connection has sent, or for its
//                           replies.
//   lingering -> closed     The peer closed the connection, receiving failed, or the time that a
//                           refused connection may linger is over.
// `endCommunication` is called on the way into lingering, or into closed if that comes first.
#pragma once

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/NetConnection.h"
#include "platform/server/ConnectionState.h"
#include "platform/server/KeptServer.h"
#include "platform/server/Poller.h"
#include "platform/server/ServingLoop.h"

namespace sorvane {

/// Unless noted otherwise, call everything here only from the thread of the connection's serving
/// loop. In the phase `delivering`, a waiting thread has the connection instead.
///
/// An idle connection has no buffer. Requests are read into a buffer of the loop, and replies are
/// written into another one. A connection keeps only what is left over: part of a frame, requests
/// that wait, and replies that the peer does not take.
///
/// While a reply cannot be sent, nothing is read. So a peer that does not read its replies costs a
/// bounded amount of memory, however much it asks. What all connections keep has limits, too: one
/// for input, whether it is a part of a frame or waits for its turn, and one for replies.
class ServerConnection final : public NetConnection, private ConnectionState {
 public:
  /// Takes over the descriptor.
  ServerConnection(int descriptor, ServingLoop& loop)
      : ConnectionState{.loop_ = loop, .descriptor_ = descriptor} {
    noteWork(false);  // the one before with this number has left its mark
  }
  /// Takes over the descriptor of a connection that another program has kept. What it holds is
  /// counted, whatever the limits are. Call `restoreDeadline`, `restoreHeld` and `watch` then.
  ServerConnection(const KeptConnection& kept, ServingLoop& loop);

  [[nodiscard]] int descriptor() const override { return descriptor_; }

  // ---- ServerConnection.cpp: requests and their replies

  /// Closes the descriptor, unless it was released.
  ~ServerConnection() override;

  /// Tells the delegate, then begins to watch the descriptor. Called on the accepting thread, which
  /// must not use the connection afterwards: it may be destroyed already.
  void start();

  /// Handles an event of the poller. May destroy the connection.
  void handle(const Poller::Event& event);

  /// Has a waiting thread deliver the first request of the leftover input.
  void handToWaitingThread();

  // ---- ServerConnectionPhases.cpp: leftovers, deadlines, refusing and closing

  /// See NetConnection. Any thread.
  [[nodiscard]] bool isFromThisMachine() const override;

  /// Handles the end of a deadline: closes the connection if it lingers, otherwise refuses it.
  void expire();

  /// Closes the connection after it could not be served for want of memory. Destroys it.
  void closeForWantOfMemory();

  /// Takes the connection back from the waiting thread, which has delivered the first request of
  /// the leftover input. May destroy the connection.
  void resume();

  /// Takes the connection back with that request undelivered, until the loop goes on after a pause.
  /// May destroy the connection.
  void standBy();

  /// Asks for the reply to the request that is held, for the last time or not. If there is one,
  /// sends it and goes on with the requests behind. May destroy the connection.
  void answerHeld(bool isLastTime);

  // ---- ServerConnectionKept.cpp: handing on

  /// Describes the connection during a pause, when it is not in the phase `delivering`. Times count
  /// from `now`. Valid until the connection changes.
  [[nodiscard]] KeptConnection kept(DeadlineQueue::Clock::time_point now) const;
  /// True if `endCommunication` was called.
  [[nodiscard]] bool isEnded() const { return ended_; }
  /// Gives up the descriptor: the connection does not close it.
  void release() { descriptor_ = -1; }
  /// Sets the deadline that the phase has, but not beyond what the settings allow. Those of a loop
  /// must be set in the order of their ends.
  void restoreDeadline(std::chrono::milliseconds left);
  /// Holds the request that was held. Those of a loop must be held in the order of their ends.
  void restoreHeld(std::chrono::milliseconds left);
  /// Begins to watch for what the phase needs. May destroy the connection.
  void watch();

 private:
  static constexpr const char* kTooManyReplies =
      "replies that clients have not taken fill the memory that they may";
  static constexpr const char* kTooManyUnfinished =
      "unfinished requests fill the memory that they may";
  static constexpr const char* kNoMemory = "there is no memory for its requests and replies";

  // ---- ServerConnection.cpp: requests and their replies

  void receive();
  /// Handles the complete frames of `input`, which is the loop's input buffer or the leftover
  /// input, and chooses the next phase. May destroy the connection.
  void serve(std::string_view input);
  /// What `deliverAll` did with an input.
  struct Served {
    std::size_t bytes = 0;        ///< length of the frames that were delivered
    const char* fault = nullptr;  ///< why the next frame is malformed, or null
    bool mustWait = false;        ///< the next frame is for a waiting thread
    bool isCutShort = false;      ///< the next frame must wait until the output is sent
    std::size_t heldBytes = 0;    ///< length of the next frame if it is held
    std::chrono::seconds heldFor{};
  };
  [[nodiscard]] Served deliverAll(std::string_view input);
  /// Delivers a request without waiting, and writes the reply unless it is held. Returns nothing if
  /// the request must go to a waiting thread.
  [[nodiscard]] std::optional<Reply> deliver(const Message& request, Turn& turn);
  /// Reads the first request of the leftover input, whose frame is complete. Returns null, or why
  /// it is malformed.
  [[nodiscard]] const char* readLeftoverRequest(Message& request) const;
  /// Delivers that request. Runs on a waiting thread, and leaves what needs a disk to the disk's.
  void deliverOnWaitingThread();
  /// Calls `step`, a part of that, and gives the connection back to be closed if there is no memory
  /// for it.
  template <typename Step>
  void onOtherThread(Step step);
  /// Ends the delivery of that request: gives the connection back to its serving thread, which may
  /// destroy it. No leftover output may have been there before.
  void finishDelivery(const Message& request, Reply reply);
  /// Sends as much of the loop's output as the peer takes and keeps the rest as leftover. Returns
  /// false if the connection failed or the rest cannot be kept.
  [[nodiscard]] bool sendOutput();
  /// Keeps `rest`, the end of the input that was served, as leftover input. Returns false if the
  /// input of all connections would pass its limit.
  [[nodiscard]] bool keepInput(std::string_view rest);
  /// Counts the memory of the leftover input anew. Returns false if that of all connections would
  /// pass its limit.
  [[nodiscard]] bool countInput();
  /// Calls `endCommunication`, the first time only.
  void endOnce();

  // ---- ServerConnectionPhases.cpp: leftovers, deadlines, refusing and closing

  /// Sends as much of the leftover output as the peer takes. If that is something, the deadline for
  /// the next part begins anew. Returns false if the connection failed.
  [[nodiscard]] bool sendLeftover();
  /// Sends what the peer takes, and goes on with the input when nothing is left to send. Returns
  /// true if the peer took nothing. May destroy the connection.
  bool continueSending();
  /// Enters the phase `sending`. May destroy the connection.
  void waitForPeer();
  /// Goes on with the leftover input. Call it when no leftover output remains. May destroy the
  /// connection.
  void continueAfterSending();
  [[nodiscard]] bool hasLeftoverOutput() const {
    return leftover_ != nullptr && !leftover_->output.empty();
  }
  /// True if nothing has come that is not answered, and nothing is left to send.
  [[nodiscard]] bool isAtRest() const;
  /// Notes whether the connection is at work, if anybody would look at that.
  void noteWork(bool isAtWork) const {
    if (WorkMarks* const marks = loop_.context().marks; marks != nullptr) {
      isAtWork ? marks->setAtWork(descriptor_) : marks->setAtRest(descriptor_);
    }
  }
  /// The leftover, made if there is none.
  [[nodiscard]] Leftover& leftover();
  void dropLeftoverIfEmpty();

  /// Enters the phase `holding`. May destroy the connection.
  void hold(std::chrono::seconds time, bool isAskedHere);
  /// Keeps what came behind the request that is held. May destroy the connection.
  void keepBehind(std::string_view came);
  /// Sets a deadline for the last frame behind the request that is held, if only a part of it has
  /// come. Returns false if there is a bad header behind it.
  [[nodiscard]] bool setDeadlineBehind();

  /// Adds the connection to the queue, unless it has a deadline.
  void setDeadline(DeadlineQueue& queue);
  void clearDeadline() {
    if (leftover_ != nullptr && leftover_->queue != nullptr) {
      std::exchange(leftover_->queue, nullptr)->remove(leftover_->deadline);
    }
  }

  /// May destroy the connection, but not for the phase `delivering`.
  void enter(Phase phase) {
    if (phase != phase_) {
      change(std::exchange(phase_, phase));
    }
  }
  /// Makes the poller watch for what the phase needs; `before` is the phase that was left. Closes
  /// the connection if the poller refuses.
  void change(Phase before);

  /// Notes that no more input is accepted, and reports the reason to the console.
  void refuse(const char* fault);
  /// Writes to the console why the connection is closed.
  void reportClosing(const char* reason) const;
  /// Shuts the writing side and enters the phase `lingering`. May destroy the connection.
  void linger();
  /// Reads and drops what arrives while lingering.
  void drop();
  /// Destroys the connection.
  void closeNow();
};

}  // namespace sorvane
