// One connection of the server: its descriptor, what has come and not been handled, what is due and
// not been sent.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "platform/NetConnection.h"
#include "platform/server/DeadlineQueue.h"
#include "platform/server/Poller.h"

namespace sorvane {

class ServingLoop;

/// Belongs to its serving loop, whose thread calls everything here; only while a request is with a
/// waiting thread does that thread hold it instead. An idle connection holds no buffer: requests
/// are read into the loop's, replies are written into the loop's, and only what is left over (half
/// a frame, a peer that does not read) is kept in one of its own.
///
/// A reply that cannot be sent stops the reading; reading goes on when all is sent. So a peer that
/// does not read costs a bounded amount of memory, however much it asks.
class ServerConnection final : public NetConnection {
 public:
  /// Takes over the descriptor.
  ServerConnection(int descriptor, ServingLoop& loop) : loop_(loop), descriptor_(descriptor) {}
  /// Closes the descriptor.
  ~ServerConnection() override;

  [[nodiscard]] int descriptor() const { return descriptor_; }

  /// Tells the delegate and begins to be watched; on the accepting thread, as the last thing it
  /// does with it. May be gone afterwards.
  void start();

  /// The poller has something to tell. The connection may be gone afterwards.
  void handle(const Poller::Event& event);

  /// A deadline has passed. The connection is gone afterwards, or lingers.
  void expire();

  /// The waiting thread has delivered the request at the front of the input. May be gone
  /// afterwards.
  void resume();

 private:
  enum class Phase : std::uint8_t {
    reading,     ///< waits for requests
    sending,     ///< waits until the peer takes its replies, or has room for more
    delivering,  ///< a request is with a waiting thread; not watched by the poller
    lingering,   ///< the writing side is shut; what still arrives is dropped
  };
  struct Backlog {
    std::string input;     ///< from the first byte not handled
    ByteBuffer output;     ///< replies not sent
    std::size_t sent = 0;  ///< bytes of `output` that are
    bool hasDeadline = false;
    DeadlineQueue::Ticket deadline;
  };

  void receive();
  void drop();
  void serve(std::string_view input);
  /// What came of the complete frames at the start of an input.
  struct Served {
    std::size_t bytes = 0;        ///< taken by frames that were delivered
    const char* fault = nullptr;  ///< why what follows cannot be a frame
    bool mustWait = false;        ///< the frame that follows is for a waiting thread
    bool isCutShort = false;      ///< what follows has to wait until the output is sent
  };
  [[nodiscard]] Served deliverAll(std::string_view input);
  [[nodiscard]] bool deliver(const Message& request, Turn& turn);
  void deliverOnWaitingThread();
  void refuse(const char* fault);
  void continueAfterSending();

  /// Sends what it can of the loop's output; the rest becomes backlog. False when the connection
  /// failed.
  [[nodiscard]] bool sendOutput();
  [[nodiscard]] bool sendBacklog();
  [[nodiscard]] bool hasOutput() const { return backlog_ != nullptr && !backlog_->output.empty(); }

  [[nodiscard]] Backlog& backlog();
  void keepInput(std::string_view rest);
  void dropBacklogIfEmpty();
  void setDeadline(DeadlineQueue& queue);
  void clearDeadline();

  void enter(Phase phase);
  void endOnce();
  void linger();
  void closeNow();

  ServingLoop& loop_;
  std::unique_ptr<Backlog> backlog_;  // null while there is none
  int descriptor_;
  Phase phase_ = Phase::reading;
  bool refused_ = false;  // a malformed frame came: no more is read
  bool ended_ = false;    // endCommunication was called
};

}  // namespace sorvane
