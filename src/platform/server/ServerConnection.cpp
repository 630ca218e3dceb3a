// The requests of a connection: reading them, delivering them, and sending their replies. Each
// request passes through functions of this file only.
#include "platform/server/ServerConnection.h"

#include <errno.h>

#include <algorithm>
#include <cstdlib>
#include <new>
#include <utility>

#include "platform/Console.h"
#include "platform/server/ServingLoop.h"
#include "platform/server/SocketCalls.h"
#include "platform/wire/Frame.h"

namespace sorvane {
namespace {

// When this much output is due, it is sent and the loop's other connections get their turn, even if
// more requests have come: a few bytes of request can ask for megabytes of reply.
constexpr std::size_t kOutputAtOnce = 256 * 1024;
// Locks are kept for this many requests at most, and not beyond a long reply. Other serving threads
// try for a lock longer than such requests take.
constexpr int kRequestsOfTurn = 64;
constexpr std::size_t kOutputOfTurn = 16 * 1024;
// After this many requests of one connection the loop's other connections get their turn.
constexpr int kRequestsAtOnce = 4 * kRequestsOfTurn;
// Reading the entries of a longer request takes so long that a waiting thread does it.
constexpr std::size_t kLongRequest = 16 * 1024;
// A larger output buffer is freed after use.
constexpr std::size_t kKeptOutput = 1024 * 1024;

/// Calls an operation of the delegate and returns its result, or `otherwise` if it raises
/// NSException. Any other exception ends the process, because it may have left a lock held.
template <typename Result, typename Operation>
Result callDelegate(Result otherwise, Operation&& operation) noexcept {
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

/// Puts a frame in the place of what was written from `begin` on.
void writeInstead(Reply reply, std::string_view request, ReplyBuffer& output, std::size_t begin) {
  output.truncate(begin);
  if (reply.kind() == Reply::Kind::request) {
    appendFrame(output.own(), request);
  } else {
    appendEmptyFrame(output.own());
  }
}

/// Completes the frame that begins at `begin` of the output's own bytes as the reply says.
/// `request` is the body of the request.
inline void encodeReply(Reply reply, std::string_view request, ReplyBuffer& output,
                        std::size_t begin) {
  if (reply.kind() == Reply::Kind::written) {
    endFrame(output.own(), begin, output.sharedBytesBeyond(begin));
  } else {
    writeInstead(reply, request, output, begin);
  }
}

}  // namespace

ServerConnection::~ServerConnection() {
  if (descriptor_ >= 0) {
    closeSocket(descriptor_);
  }
}

void ServerConnection::start() {
  callDelegate(true, [this] {
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
    case Phase::holding:
      if (event.readable) {
        receive();
      }
      return;
    case Phase::sending:
      if (event.writable) {
        continueSending();
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
  noteWork(true);  // what is received is gone from the socket
  const ssize_t received = receiveBytes(descriptor_, loop_.input(), ServingLoop::kInputBytes);
  if (received > 0) {
    const std::string_view came(loop_.input(), static_cast<std::size_t>(received));
    if (phase_ == Phase::holding) {
      keepBehind(came);
    } else if (leftover_ == nullptr || leftover_->input.empty()) {
      serve(came);
    } else {
      leftover_->input.append(came);
      serve(leftover_->input.view());
    }
  } else if (received == 0 && phase_ == Phase::holding) {
    answerHeld(true);  // the end is found once more when the requests behind it are served
  } else if (received == 0 || (errno != EAGAIN && errno != EWOULDBLOCK)) {
    closeNow();  // no reply is due: nothing is read while replies wait to be sent
  } else {
    noteWork(!isAtRest());
  }
}

void ServerConnection::serve(std::string_view input) {
  const Served served = deliverAll(input);
  if (!sendOutput()) {
    closeNow();
    return;
  }
  // A request is held when all replies before it are sent. Until then it waits as any other does,
  // and is delivered once more.
  const bool isHeld = served.heldBytes > 0 && !hasLeftoverOutput();
  const std::size_t handled = served.bytes + (isHeld ? served.heldBytes : 0);
  if (handled > 0 || served.mustWait) {
    clearDeadline();  // the frame that had the deadline is complete
  }
  if (served.fault != nullptr) {
    refuse(served.fault);
  } else if (!keepInput(input.substr(handled))) {
    refuse(kTooManyUnfinished);
  }
  if (hasLeftoverOutput() || served.isCutShort) {
    waitForPeer();  // even if all is sent: the loop's other connections get their turn
  } else if (isHeld) {
    hold(served.heldFor, true);
  } else if (refused_) {
    linger();
  } else if (served.mustWait) {
    enter(Phase::delivering);
    if (loop_.context().pause.setsAside()) {
      loop_.setAside(*this);
    } else {
      handToWaitingThread();
    }
  } else {
    if (leftover_ != nullptr && !leftover_->input.empty()) {
      setDeadline(loop_.partialFrames());
    } else {
      noteWork(false);
    }
    enter(Phase::reading);
  }
}

ServerConnection::Served ServerConnection::deliverAll(std::string_view input) {
  Served served;
  Message& request = loop_.request();
  const std::size_t maximumBody = loop_.context().maximumBodyBytes;
  std::optional<Turn> turn(std::in_place);
  int requests = 0;
  std::size_t outputBefore = loop_.output().size();
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
    if (header.bodyBytes > kLongRequest) {
      served.mustWait = true;
      break;
    }
    served.fault = request.readBody(rest.substr(kFrameHeaderBytes, header.bodyBytes));
    if (served.fault != nullptr) {
      break;
    }
    const std::optional<Reply> reply = deliver(request, *turn);
    if (!reply) {
      served.mustWait = true;
      break;
    }
    if (reply->isHeld()) {
      served.heldBytes = kFrameHeaderBytes + header.bodyBytes;
      served.heldFor = reply->time();
      break;
    }
    served.bytes += kFrameHeaderBytes + header.bodyBytes;
    if (++requests == kRequestsAtOnce || loop_.output().size() >= kOutputAtOnce) {
      served.isCutShort = served.bytes < input.size();
      break;
    }
    if (requests % kRequestsOfTurn == 0 || loop_.output().size() - outputBefore > kOutputOfTurn) {
      turn.emplace();
      outputBefore = loop_.output().size();
    }
  }
  return served;
}

std::optional<Reply> ServerConnection::deliver(const Message& request, Turn& turn) {
  NetConnectionDelegate& delegate = loop_.context().delegate;
  ReplyBuffer& output = loop_.output();
  const std::size_t begin = beginFrame(output.own());
  setReplyBuffer(&output);
  const auto reply = callDelegate<std::optional<Reply>>(
      std::nullopt, [&] { return delegate.deliverWithoutWaiting(request, *this, turn); });
  if (!reply || reply->isHeld()) {
    output.truncate(begin);
    return reply;
  }
  encodeReply(*reply, request.body(), output, begin);
  delegate.cleanupAfterMessage();
  return reply;
}

const char* ServerConnection::readLeftoverRequest(Message& request) const {
  const std::string_view input = leftover_->input.view();
  const std::size_t bodyBytes = readFrameHeader(input, loop_.context().maximumBodyBytes).bodyBytes;
  return request.readBody(input.substr(kFrameHeaderBytes, bodyBytes));
}

void ServerConnection::handToWaitingThread() {
  loop_.context().deliveries.run([this] { deliverOnWaitingThread(); });
}

void ServerConnection::deliverOnWaitingThread() {
  onOtherThread([this] {
    Message request;
    leftover_->fault = readLeftoverRequest(request);
    if (leftover_->fault != nullptr) {
      loop_.delivered(*this);
      return;
    }
    (void)beginFrame(leftover_->reply.own());
    setReplyBuffer(&leftover_->reply);
    Delivery delivery = callDelegate<Delivery>(
        Reply::none(), [&] { return loop_.context().delegate.deliverWithoutDisk(request, *this); });
    loop_.context().announceChanges();  // a disk may hang
    if (delivery.isComplete()) {
      finishDelivery(request, delivery.reply());
      return;
    }
    // The request is read again there. Keeping it would cost each connection that waits for the
    // disk several times the bytes of a request of many entries.
    threadOf(delivery.disk()).run([this, rest = delivery.takeRest()] {
      onOtherThread([&] {
        Message sameRequest;
        static_cast<void>(readLeftoverRequest(sameRequest));  // it was well formed before
        finishDelivery(sameRequest, callDelegate(Reply::none(), [&] { return rest(sameRequest); }));
      });
    });
  });
}

template <typename Step>
void ServerConnection::onOtherThread(Step step) {
  try {
    step();
  } catch (const std::bad_alloc&) {
    leftover_->closingReason = kNoMemory;
    loop_.delivered(*this);
  }
}

void ServerConnection::finishDelivery(const Message& request, Reply reply) {
  Leftover& kept = *leftover_;
  if (!reply.isHeld()) {
    encodeReply(reply, request.body(), kept.reply, 0);
  }
  loop_.context().delegate.cleanupAfterMessage();
  kept.input.takeOff(kFrameHeaderBytes + request.body().size());
  static_cast<void>(countInput());  // it was counted before and has not grown
  if (reply.isHeld()) {
    kept.reply = ReplyBuffer();
    kept.held = reply;
  } else if (!kept.output.keep(std::exchange(kept.reply, ReplyBuffer()), 0)) {
    kept.closingReason = kTooManyReplies;
  }
  loop_.delivered(*this);
}

void ServerConnection::answerHeld(bool isLastTime) {
  NetConnectionDelegate& delegate = loop_.context().delegate;
  ReplyBuffer& output = loop_.output();
  const std::size_t begin = beginFrame(output.own());
  setReplyBuffer(&output);
  const Reply reply =
      callDelegate(Reply::none(), [&] { return delegate.deliverHeld(*this, isLastTime); });
  if (reply.isHeld() && !isLastTime) {
    output.truncate(begin);
    return;
  }
  HeldRequests::remove(*held_);
  encodeReply(reply, {}, output, begin);
  delegate.cleanupAfterMessage();
  if (!sendOutput()) {
    closeNow();
  } else if (hasLeftoverOutput()) {
    waitForPeer();
  } else {
    continueAfterSending();
  }
}

bool ServerConnection::sendOutput() {
  ReplyBuffer& output = loop_.output();
  if (output.empty()) {
    return true;
  }
  const ssize_t sent = sendReplies(descriptor_, output, 0);
  if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK) {
    output.clear();
    return false;
  }
  if (sent == static_cast<ssize_t>(output.size())) {
    output.clear();
    if (output.own().capacity() > kKeptOutput) {
      output = ReplyBuffer();
    }
    return true;
  }
  // The buffer itself is kept, so that a long reply is not copied.
  const std::size_t begun = sent < 0 ? 0 : static_cast<std::size_t>(sent);
  if (!leftover().output.keep(std::exchange(output, ReplyBuffer()), begun)) {
    reportClosing(kTooManyReplies);
    return false;
  }
  return true;
}

bool ServerConnection::keepInput(std::string_view rest) {
  if (leftover_ != nullptr && !leftover_->input.empty()) {
    leftover_->input.takeOff(leftover_->input.size() - rest.size());
  } else if (!rest.empty()) {
    leftover().input.append(rest);
  } else {
    return true;
  }
  const bool isWithinLimit = countInput();
  dropLeftoverIfEmpty();
  return isWithinLimit;
}

bool ServerConnection::countInput() {
  return leftover_->inputShare.change(leftover_->input.capacity());
}

void ServerConnection::endOnce() {
  if (!std::exchange(ended_, true)) {
    callDelegate(true, [this] {
      loop_.context().delegate.endCommunication(*this);
      return true;
    });
  }
}

}  // namespace sorvane
