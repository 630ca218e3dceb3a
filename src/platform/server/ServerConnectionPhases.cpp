// What a connection does apart from requests: it sends leftover replies, changes its phase, keeps
// deadlines, refuses malformed input, and closes.
#include <errno.h>
#include <sys/socket.h>

#include <string>

#include "platform/Console.h"
#include "platform/server/ServerConnection.h"
#include "platform/server/ServingLoop.h"
#include "platform/server/SocketCalls.h"

namespace sorvane {
namespace {

ConsoleRateLimit& refusals() {
  static auto* const limit = new ConsoleRateLimit;
  return *limit;
}

}  // namespace

ServerConnection::Leftover::Leftover(ServerContext& context)
    : inputShare(context.unfinishedInput), output(context.untakenReplies) {}

bool ServerConnection::isFromThisMachine() const {
  const auto peer = peerAddress(descriptor_);
  return peer && loop_.context().ownAddresses.contains(*peer);
}

void ServerConnection::resume() {
  phase_ = Phase::reading;
  watched_ = Poller::Interest::readable;
  if (leftover_->closingReason != nullptr) {
    reportClosing(leftover_->closingReason);
    closeNow();
  } else if (!loop_.poller().add(descriptor_, watched_, this) || !sendLeftover()) {
    closeNow();
  } else if (leftover_->fault != nullptr) {
    refuse(leftover_->fault);
    linger();
  } else if (leftover_->held) {
    const Reply held = *std::exchange(leftover_->held, std::nullopt);
    dropLeftoverIfEmpty();
    hold(held.time(), false);
  } else if (hasLeftoverOutput()) {
    waitForPeer();
  } else {
    continueAfterSending();
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
    serve(leftover_->input);
  } else {
    dropLeftoverIfEmpty();
    enter(Phase::reading);
  }
}

// Nothing is read meanwhile: what comes behind the request waits in the system. An event tells once
// that something has come. After that, only the end of the peer is watched for.
void ServerConnection::hold(std::chrono::seconds time, bool isAskedHere) {
  if (held_ == nullptr) {
    held_ = std::make_unique<HeldRequest>(*this);
  }
  loop_.hold(*held_, time, isAskedHere);
  enter(Phase::holding);
}

void ServerConnection::refuse(const char* fault) {
  refused_ = true;
  reportClosing(fault);
  if (leftover_ != nullptr) {
    leftover_->input = std::string();
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
    case Phase::reading:
    case Phase::delivering:
    case Phase::holding:
      refuse("a frame was not complete in time");
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

void ServerConnection::watchForPhase() {
  switch (phase_) {
    case Phase::delivering:
      // A peer that hangs up meanwhile must not wake the loop again and again.
      loop_.poller().remove(descriptor_);
      return;
    case Phase::sending:
      watchFor(Poller::Interest::writable);
      return;
    case Phase::reading:
    case Phase::holding:
    case Phase::lingering:
      watchFor(Poller::Interest::readable);
      return;
  }
}

void ServerConnection::watchFor(Poller::Interest interest) {
  if (interest != watched_) {
    watched_ = interest;
    if (!loop_.poller().modify(descriptor_, interest, this)) {
      closeNow();
    }
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
