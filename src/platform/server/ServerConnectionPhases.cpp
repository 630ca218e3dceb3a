// What a connection does apart from requests: it sends leftover replies, changes its phase, keeps
// deadlines, refuses malformed input, and closes.
#include <errno.h>
#include <sys/socket.h>

#include <string>

#include "platform/Console.h"
#include "platform/server/ConnectionOptions.h"
#include "platform/server/ServerConnection.h"
#include "platform/server/ServingLoop.h"
#include "platform/server/SocketCalls.h"
#include "platform/wire/Frame.h"

namespace sorvane {
namespace {

constexpr const char* kNotInTime = "a frame was not complete in time";

ConsoleRateLimit& refusals() {
  static auto* const limit = new ConsoleRateLimit;
  return *limit;
}

}  // namespace

bool ServerConnection::isFromThisMachine() const {
  const auto peer = peerAddress(descriptor_);
  return peer && loop_.context().ownAddresses.contains(*peer);
}

void ServerConnection::resume() {
  phase_ = Phase::reading;
  if (leftover_->closingReason != nullptr) {
    reportClosing(leftover_->closingReason);
    closeNow();
  } else if (!loop_.poller().add(descriptor_, Poller::Interest::readable, this) ||
             !sendLeftover()) {
    closeNow();
  } else if (leftover_->fault != nullptr) {
    refuse(leftover_->fault);
    linger();
  } else if (leftover_->held) {
    const Reply held = *std::exchange(leftover_->held, std::nullopt);
    dropLeftoverIfEmpty();
    hold(held.time(), false);
  } else if (hasLeftoverOutput() || loop_.context().pause.isAskedFor()) {
    waitForPeer();
  } else {
    continueAfterSending();
  }
}

void ServerConnection::standBy() {
  phase_ = Phase::sending;
  if (!loop_.poller().add(descriptor_, Poller::Interest::writable, this)) {
    closeNow();
  }
}

bool ServerConnection::continueSending() {
  const std::size_t sentBefore = leftover_ == nullptr ? 0 : leftover_->output.sent();
  if (!sendLeftover()) {
    closeNow();
  } else if (!hasLeftoverOutput()) {
    continueAfterSending();
  } else {
    return leftover_->output.sent() == sentBefore;
  }
  return false;
}

void ServerConnection::waitForPeer() {
  clearDeadline();
  if (hasLeftoverOutput()) {
    setDeadline(loop_.untakenReplies());
  }
  enter(Phase::sending);
}

void ServerConnection::continueAfterSending() {
  clearDeadline();
  if (refused_) {
    linger();
  } else if (leftover_ != nullptr && !leftover_->input.empty()) {
    serve(leftover_->input.view());
  } else {
    dropLeftoverIfEmpty();
    noteWork(false);
    enter(Phase::reading);
  }
}

void ServerConnection::hold(std::chrono::seconds time, bool isAskedHere) {
  if (held_ == nullptr) {
    held_ = std::make_unique<HeldRequest>(*this);
    noticeWaitingPeerThatVanishes(descriptor_);
  }
  if (refused_) {
    loop_.hold(*held_, time, isAskedHere);
    answerHeld(true);
    return;
  }
  // Before a bad header it is over in this turn, and not here: there may be many of them in a row,
  // each of which would be answered inside the answer to the one before.
  const bool mayWait = setDeadlineBehind();
  loop_.hold(*held_, mayWait ? time : std::chrono::seconds(0), isAskedHere);
  enter(Phase::holding);
}

// All that comes is read, so that the end of the peer is seen, too.
void ServerConnection::keepBehind(std::string_view came) {
  Input& input = leftover().input;
  input.append(came);
  if (!countInput()) {
    refuse(kTooManyUnfinished);
    answerHeld(true);
  } else if (input.size() >
             kFrameHeaderBytes + loop_.context().maximumBodyBytes + ServingLoop::kInputBytes) {
    refuse("too much came behind a request that is held");
    answerHeld(true);
  } else if (!setDeadlineBehind()) {
    answerHeld(true);  // the bad header is found once more when the requests before it are served
  }
}

bool ServerConnection::setDeadlineBehind() {
  if (leftover_ == nullptr) {
    return true;
  }
  Input& input = leftover_->input;
  const std::size_t completeBefore = input.completeBytes();
  const auto unfinished = input.firstUnfinished(loop_.context().maximumBodyBytes);
  if (input.completeBytes() > completeBefore) {
    clearDeadline();  // the frame that had it is complete
  }
  if (!unfinished) {
    return true;
  }
  if (unfinished->fault != nullptr) {
    return false;
  }
  setDeadline(loop_.partialFrames());
  return true;
}

void ServerConnection::refuse(const char* fault) {
  refused_ = true;
  reportClosing(fault);
  if (leftover_ != nullptr) {
    leftover_->input = Input();
    static_cast<void>(leftover_->inputShare.change(0));
  }
}

void ServerConnection::reportClosing(const char* reason) const {
  refusals().line(peerName(descriptor_) + ": connection closed, " + reason);
}

void ServerConnection::expire() {
  switch (phase_) {
    case Phase::lingering:
      closeNow();
      return;
    case Phase::sending:
      // The system may not have told yet that the peer has taken a little: it waits until there is
      // room for much.
      if (continueSending()) {
        reportClosing("nothing of a reply was taken for too long");
        closeNow();
      }
      return;
    case Phase::holding:
      refuse(kNotInTime);
      answerHeld(true);
      return;
    case Phase::reading:
    case Phase::delivering:
      refuse(kNotInTime);
      linger();
      return;
  }
}

void ServerConnection::closeForWantOfMemory() {
  reportClosing(kNoMemory);
  closeNow();
}

void ServerConnection::drop() {
  const ssize_t received = receiveBytes(descriptor_, loop_.input(), ServingLoop::kInputBytes);
  if (received == 0 || (received < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) {
    closeNow();
  }
}

bool ServerConnection::sendLeftover() {
  bool isTaken = false;
  while (hasLeftoverOutput()) {
    if (leftover_->output.send(descriptor_) >= 0) {
      isTaken = true;
      continue;
    }
    if (errno != EAGAIN && errno != EWOULDBLOCK) {
      return false;
    }
    if (isTaken && leftover_->queue != nullptr) {
      leftover_->queue->restart(leftover_->deadline);
    }
    return true;
  }
  return true;
}

bool ServerConnection::isAtRest() const {
  return phase_ == Phase::reading && (leftover_ == nullptr || leftover_->input.empty());
}

ServerConnection::Leftover& ServerConnection::leftover() {
  if (leftover_ == nullptr) {
    leftover_ = std::make_unique<Leftover>(loop_.context());
  }
  return *leftover_;
}

void ServerConnection::dropLeftoverIfEmpty() {
  if (leftover_ != nullptr && leftover_->input.empty() && leftover_->output.empty() &&
      leftover_->queue == nullptr) {
    leftover_.reset();
  }
}

void ServerConnection::setDeadline(DeadlineQueue& queue) {
  if (leftover().queue == nullptr) {
    leftover_->queue = &queue;
    leftover_->deadline = queue.add(*this);
  }
}

void ServerConnection::change(Phase before) {
  Poller& poller = loop_.poller();
  bool isWatched = true;
  switch (phase_) {
    case Phase::delivering:
      // A peer that hangs up meanwhile must not wake the loop again and again.
      poller.remove(descriptor_);
      break;
    case Phase::sending:
      isWatched = poller.modify(descriptor_, Poller::Interest::writable, this);
      break;
    case Phase::reading:
    case Phase::holding:
    case Phase::lingering:
      if (before != Phase::reading && before != Phase::holding) {
        isWatched = poller.modify(descriptor_, Poller::Interest::readable, this);
      }
      break;
  }
  if (!isWatched) {
    closeNow();
  }
}

// The delegate forgets the connection before the peer can see that it ends.
void ServerConnection::linger() {
  clearDeadline();
  endOnce();
  shutdown(descriptor_, SHUT_WR);
  setDeadline(loop_.lingerers());
  enter(Phase::lingering);
}

void ServerConnection::closeNow() {
  clearDeadline();
  endOnce();
  // Closing the descriptor does not end the watching if a process that was forked meanwhile shares
  // the socket.
  loop_.poller().remove(descriptor_);
  loop_.forget(*this);
}

}  // namespace sorvane
