#include "platform/server/ServerConnection.h"

#include <errno.h>
#include <sys/socket.h>

#include <cstdlib>
#include <utility>

#include "platform/Console.h"
#include "platform/server/ServingLoop.h"
#include "platform/server/SocketCalls.h"
#include "platform/wire/Frame.h"

namespace sorvane {
namespace {

// Replies are sent when this much is due, and the loop's other connections have their turn, however
// many requests came at once: a few bytes of request may ask for megabytes of reply.
constexpr std::size_t kOutputAtOnce = 256 * 1024;
// A lock is kept for so many requests at most: about a microsecond, in which other serving threads
// still try for it.
constexpr int kRequestsOfTurn = 16;
// A larger output buffer is given back after use.
constexpr std::size_t kKeptOutput = 1024 * 1024;

ConsoleRateLimit& refusals() {
  static auto* const limit = new ConsoleRateLimit;
  return *limit;
}

/// Runs an operation of the delegate; a command's own exception answers `otherwise`. What else
/// leaves it may have left a lock held: the process cannot go on.
template <typename Result, typename Operation>
Result guarded(Result otherwise, Operation&& operation) noexcept {
  try {
    return operation();
  } catch (const NSException&) {
    return otherwise;
  } catch (const std::exception& exception) {
    consoleLine(std::string("an unexpected exception ends the process: ") + exception.what());
  } catch (...) {
    consoleLine("an unexpected exception ends the process");
  }
  std::abort();
}

void encodeReply(Reply reply, const Message& request, ByteBuffer& output, std::size_t begin) {
  switch (reply.kind()) {
    case Reply::Kind::written:
      endFrame(output, begin);
      return;
    case Reply::Kind::request:
      output.truncate(begin);
      appendFrame(output, request.body());
      return;
    case Reply::Kind::none:
      output.truncate(begin);
      appendEmptyFrame(output);
      return;
  }
}

}  // namespace

ServerConnection::~ServerConnection() { closeSocket(descriptor_); }

void ServerConnection::start() {
  guarded(true, [this] {
    loop_.context().delegate.startCommunication(*this);
    return true;
  });
  if (!loop_.poller().add(descriptor_, Poller::Interest::readable, this)) {
    closeNow();
  }
}

void ServerConnection::handle(const Poller::Event& event) {
  switch (phase_) {
    case Phase::reading:
      if (event.readable) {
        receive();
      }
      return;
    case Phase::sending:
      if (event.writable) {
        if (!sendBacklog()) {
          closeNow();
        } else if (!hasOutput()) {
          continueAfterSending();
        }
      }
      return;
    case Phase::lingering:
      drop();
      return;
    case Phase::delivering:
      return;
  }
}

void ServerConnection::receive() {
  const ssize_t received = receiveBytes(descriptor_, loop_.input(), ServingLoop::kInputBytes);
  if (received > 0) {
    const std::string_view came(loop_.input(), static_cast<std::size_t>(received));
    if (backlog_ == nullptr || backlog_->input.empty()) {
      serve(came);
    } else {
      backlog_->input.append(came);
      serve(backlog_->input);
    }
  } else if (received == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
    closeNow();  // nothing is due: while replies wait to be sent nothing is read
  }
}

void ServerConnection::drop() {
  const ssize_t received = receiveBytes(descriptor_, loop_.input(), ServingLoop::kInputBytes);
  if (received == 0 || (received < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) {
    closeNow();
  }
}

// Handles every complete frame of `input`, which is either the loop's input buffer or this
// connection's backlog.
void ServerConnection::serve(std::string_view input) {
  const Served served = deliverAll(input);
  if (!sendOutput()) {
    closeNow();
    return;
  }
  if (served.bytes > 0 || served.mustWait) {
    clearDeadline();  // the frame that it was set for is complete
  }
  keepInput(input.substr(served.bytes));
  if (served.fault != nullptr) {
    refuse(served.fault);
  }
  if (hasOutput() || served.isCutShort) {
    clearDeadline();
    enter(Phase::sending);  // and goes on, perhaps at once, when the others have had their turn
  } else if (refused_) {
    linger();
  } else if (served.mustWait) {
    enter(Phase::delivering);
    loop_.context().deliveries.run([this] { deliverOnWaitingThread(); });
  } else {
    if (backlog_ != nullptr && !backlog_->input.empty()) {
      setDeadline(loop_.partialFrames());
    }
    enter(Phase::reading);
  }
}

ServerConnection::Served ServerConnection::deliverAll(std::string_view input) {
  Served served;
  Message& request = loop_.request();
  const std::size_t maximumBody = loop_.context().maximumBodyBytes;
  std::optional<Turn> turn(std::in_place);
  int requestsOfTurn = 0;
  while (served.bytes < input.size()) {
    const std::string_view rest = input.substr(served.bytes);
    const FrameHeader header = readFrameHeader(rest, maximumBody);
    served.fault = header.fault;
    if (served.fault == nullptr && header.complete && header.kind == FrameKind::none) {
      served.fault = "a request without a dictionary";
    }
    if (served.fault != nullptr || !header.complete ||
        rest.size() - kFrameHeaderBytes < header.bodyBytes) {
      break;
    }
    served.fault = request.readBody(rest.substr(kFrameHeaderBytes, header.bodyBytes));
    if (served.fault != nullptr) {
      break;
    }
    if (!deliver(request, *turn)) {
      served.mustWait = true;
      break;
    }
    served.bytes += kFrameHeaderBytes + header.bodyBytes;
    if (loop_.output().size() >= kOutputAtOnce) {
      served.isCutShort = served.bytes < input.size();
      break;
    }
    if (++requestsOfTurn == kRequestsOfTurn) {
      turn.emplace();
      requestsOfTurn = 0;
    }
  }
  return served;
}

bool ServerConnection::deliver(const Message& request, Turn& turn) {
  NetConnectionDelegate& delegate = loop_.context().delegate;
  ByteBuffer& output = loop_.output();
  const std::size_t begin = beginFrame(output);
  setReplyBuffer(&output);
  const auto reply = guarded<std::optional<Reply>>(
      std::nullopt, [&] { return delegate.deliverWithoutWaiting(request, *this, turn); });
  if (!reply) {
    output.truncate(begin);
    return false;
  }
  encodeReply(*reply, request, output, begin);
  delegate.cleanupAfterMessage();
  return true;
}

// On a waiting thread. The frame at the front of the backlog has been read once and is well formed.
void ServerConnection::deliverOnWaitingThread() {
  NetConnectionDelegate& delegate = loop_.context().delegate;
  Backlog& kept = *backlog_;
  Message request;
  const std::size_t bodyBytes =
      readFrameHeader(kept.input, loop_.context().maximumBodyBytes).bodyBytes;
  if (request.readBody(std::string_view(kept.input).substr(kFrameHeaderBytes, bodyBytes)) !=
      nullptr) {
    std::abort();
  }
  const std::size_t begin = beginFrame(kept.output);
  setReplyBuffer(&kept.output);
  const Reply reply =
      guarded(Reply::none(), [&] { return delegate.deliverCommunication(request, *this); });
  encodeReply(reply, request, kept.output, begin);
  delegate.cleanupAfterMessage();
  kept.input.erase(0, kFrameHeaderBytes + bodyBytes);
  loop_.delivered(*this);
}

void ServerConnection::resume() {
  phase_ = Phase::reading;
  if (!loop_.poller().add(descriptor_, Poller::Interest::readable, this) || !sendBacklog()) {
    closeNow();
  } else if (hasOutput()) {
    enter(Phase::sending);
  } else {
    continueAfterSending();
  }
}

// The output is empty: goes on with the requests that came meanwhile.
void ServerConnection::continueAfterSending() {
  if (refused_) {
    linger();
  } else if (backlog_ != nullptr && !backlog_->input.empty()) {
    serve(backlog_->input);
  } else {
    dropBacklogIfEmpty();
    enter(Phase::reading);
  }
}

void ServerConnection::refuse(const char* fault) {
  refused_ = true;
  refusals().line(peerName(descriptor_) + ": connection closed, " + fault);
  if (backlog_ != nullptr) {
    backlog_->input.clear();
  }
}

void ServerConnection::expire() {
  if (phase_ == Phase::lingering) {
    closeNow();
    return;
  }
  refuse("a frame was not complete in time");
  linger();
}

bool ServerConnection::sendOutput() {
  ByteBuffer& output = loop_.output();
  if (output.empty()) {
    return true;
  }
  const ssize_t sent = sendBytes(descriptor_, output.view());
  if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
    output.clear();
    return false;
  }
  if (sent == static_cast<ssize_t>(output.size())) {
    output.clear();
    if (output.capacity() > kKeptOutput) {
      output = ByteBuffer();
    }
  } else {  // as it is: a long reply is not copied again
    backlog().output = std::exchange(output, ByteBuffer());
    backlog().sent = sent < 0 ? 0 : static_cast<std::size_t>(sent);
  }
  return true;
}

bool ServerConnection::sendBacklog() {
  while (hasOutput()) {
    const ssize_t sent = sendBytes(descriptor_, backlog_->output.view().substr(backlog_->sent));
    if (sent < 0) {
      return errno == EAGAIN || errno == EWOULDBLOCK;
    }
    backlog_->sent += static_cast<std::size_t>(sent);
    if (backlog_->sent == backlog_->output.size()) {
      backlog_->sent = 0;
      backlog_->output = ByteBuffer();
    }
  }
  return true;
}

ServerConnection::Backlog& ServerConnection::backlog() {
  if (backlog_ == nullptr) {
    backlog_ = std::make_unique<Backlog>();
  }
  return *backlog_;
}

void ServerConnection::keepInput(std::string_view rest) {
  if (backlog_ != nullptr && !backlog_->input.empty()) {
    backlog_->input.erase(0, backlog_->input.size() - rest.size());
    dropBacklogIfEmpty();
  } else if (!rest.empty()) {
    backlog().input.assign(rest);
  }
}

void ServerConnection::dropBacklogIfEmpty() {
  if (backlog_ != nullptr && backlog_->input.empty() && backlog_->output.empty() &&
      !backlog_->hasDeadline) {
    backlog_.reset();
  }
}

void ServerConnection::setDeadline(DeadlineQueue& queue) {
  if (!backlog().hasDeadline) {
    backlog_->hasDeadline = true;
    backlog_->deadline = queue.add(*this);
  }
}

void ServerConnection::clearDeadline() {
  if (backlog_ != nullptr && backlog_->hasDeadline) {
    (phase_ == Phase::lingering ? loop_.lingerers() : loop_.partialFrames())
        .remove(backlog_->deadline);
    backlog_->hasDeadline = false;
  }
}

void ServerConnection::enter(Phase phase) {
  if (phase == phase_) {
    return;
  }
  const Phase before = std::exchange(phase_, phase);
  Poller& poller = loop_.poller();
  switch (phase) {
    case Phase::delivering:
      poller.remove(
          descriptor_);  // a peer that hangs up meanwhile must not wake the loop again and again
      return;
    case Phase::sending:
      poller.modify(descriptor_, Poller::Interest::writable, this);
      return;
    case Phase::reading:
    case Phase::lingering:
      if (before != Phase::reading) {
        poller.modify(descriptor_, Poller::Interest::readable, this);
      }
      return;
  }
}

void ServerConnection::endOnce() {
  if (!std::exchange(ended_, true)) {
    guarded(true, [this] {
      loop_.context().delegate.endCommunication(*this);
      return true;
    });
  }
}

// The delegate forgets the connection before the peer can see that it ends.
void ServerConnection::linger() {
  clearDeadline();
  endOnce();
  shutdown(descriptor_, SHUT_WR);
  enter(Phase::lingering);
  setDeadline(loop_.lingerers());
}

void ServerConnection::closeNow() {
  clearDeadline();
  endOnce();
  // Closing alone does not end the watching while a process that was forked meanwhile shares the
  // socket.
  loop_.poller().remove(descriptor_);
  loop_.forget(*this);
}

}  // namespace sorvane
