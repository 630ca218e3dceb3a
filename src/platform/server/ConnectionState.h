// What a connection of the server consists of.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "platform/Reply.h"
#include "platform/server/ByteSum.h"
#include "platform/server/DeadlineQueue.h"
#include "platform/server/HeldRequests.h"
#include "platform/server/UntakenReplies.h"
#include "platform/wire/Frame.h"
#include "platform/wire/ReplyBuffer.h"

namespace sorvane {

class ServingLoop;
struct ServerContext;

/// All data members of a ServerConnection, which has none of its own. ServerConnectionKept.cpp
/// names each of them, and says what becomes of it when the connection is handed on to another
/// program. See ServerConnection.h for the phases.
struct ConnectionState {
  // Two bytes, so that the state ends without unused ones: there, a further member of a derived
  // class would not show in its size.
  enum class Phase : std::uint16_t {
    reading,     ///< waits for requests
    sending,     ///< waits until the peer takes replies
    delivering,  ///< a waiting thread delivers a request; the poller does not watch
    holding,     ///< holds a request; what comes behind it is kept
    lingering,   ///< the writing side is shut; what still arrives is dropped
  };

  /// Bytes that came and are not handled yet.
  class Input {
   public:
    [[nodiscard]] std::string_view view() const {
      return std::string_view(bytes_).substr(handled_);
    }
    [[nodiscard]] std::size_t size() const { return bytes_.size() - handled_; }
    [[nodiscard]] bool empty() const { return size() == 0; }
    /// The memory that it takes, bytes.
    [[nodiscard]] std::size_t capacity() const { return bytes_.capacity(); }
    void append(std::string_view came) { bytes_.append(came); }
    /// Takes the first `bytes` off and gives back memory that is needed no more. The rest is moved
    /// only when it is the smaller half, so taking off many requests moves each byte once or so.
    void takeOff(std::size_t bytes);
    /// Looks at the frames that came since the last call. Returns the header of the first frame
    /// that is not complete or whose header is bad, or nothing if all are complete.
    [[nodiscard]] std::optional<FrameHeader> firstUnfinished(std::size_t maximumBodyBytes);
    /// The length of the complete frames that `firstUnfinished` has found.
    [[nodiscard]] std::size_t completeBytes() const { return completeBytes_; }
    /// What is to be appended to an empty one to have the same.
    [[nodiscard]] std::string_view kept() const;

   private:
    std::string bytes_;
    std::size_t handled_ = 0;        // of `bytes_`; these are not moved out yet
    std::size_t completeBytes_ = 0;  // behind those
  };

  struct Leftover {
    explicit Leftover(ServerContext& context);

    Input input;
    ByteShare inputShare;   ///< the memory of `input`
    UntakenReplies output;  ///< replies that are not sent yet
    ReplyBuffer reply;      ///< of the request that a waiting thread delivers
    /// Why the connection must be closed after a waiting thread had it, or null.
    const char* closingReason = nullptr;
    /// Why a waiting thread found the request malformed, or null.
    const char* fault = nullptr;
    /// The reply if a waiting thread has delivered a request that is held.
    std::optional<Reply> held = std::nullopt;
    DeadlineQueue* queue = nullptr;  ///< which has a deadline of the connection; null if none has
    DeadlineQueue::Ticket deadline;  ///< valid if there is a `queue`
  };

  ServingLoop& loop_;
  int descriptor_;
  Phase phase_ = Phase::reading;
  bool refused_ = false;                          // no more input is accepted
  bool ended_ = false;                            // endCommunication was called
  std::unique_ptr<Leftover> leftover_ = nullptr;  // null if nothing is left over
  std::unique_ptr<HeldRequest> held_ = nullptr;   // null until the connection holds a request
};

}  // namespace sorvane
