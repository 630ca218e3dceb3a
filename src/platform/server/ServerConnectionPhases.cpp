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

bool ServerConnection::isFromThisMachine() const {
  const auto peer = peerAddress(descriptor_);
  return peer && loop_.context().ownAddresses.contains(*peer);
}

void ServerConnection::resume() {
  phase_ = Phase::reading;
  if (!loop_.poller().add(descriptor_, Poller::Interest::readable, this) || !sendLeftover()) {
    closeNow();
  } else if (hasLeftoverOutput()) {
    enter(Phase::sending);
  } else {
    continueAfterSending();
  }
}

void ServerConnection::continueAfterSending() {
  if (refused_) {
    linger();
  } else if (leftover_ != nullptr && !leftover_->input.empty()) {
    serve(leftover_->input);
  } else {
    dropLeftoverIfEmpty();
    enter(Phase::reading);
  }
}

void ServerConnection::refuse(const char* fault) {
  refused_ = true;
  refusals().line(peerName(descriptor_) + ": connection closed, " + fault);
  if (leftover_ != nullptr) {
    leftover_->input.clear();
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

void ServerConnection::drop() {
  const ssize_t received = receiveBytes(descriptor_, loop_.input(), ServingLoop::kInputBytes);
  if (received == 0 || (received < 0 && errno != EAGAIN && errno != EWOULDBLOCK)) {
    closeNow();
  }
}

bool ServerConnection::sendLeftover() {
  while (hasLeftoverOutput()) {
    const ssize_t sent = sendBytes(descriptor_, leftover_->output.view().substr(leftover_->sent));
    if (sent < 0) {
      return errno == EAGAIN || errno == EWOULDBLOCK;
    }
    leftover_->sent += static_cast<std::size_t>(sent);
    if (leftover_->sent == leftover_->output.size()) {
      leftover_->sent = 0;
      leftover_->output = ByteBuffer();
    }
  }
  return true;
}

ServerConnection::Leftover& ServerConnection::leftover() {
  if (leftover_ == nullptr) {
    leftover_ = std::make_unique<Leftover>();
  }
  return *leftover_;
}

void ServerConnection::dropLeftoverIfEmpty() {
  if (leftover_ != nullptr && leftover_->input.empty() && leftover_->output.empty() &&
      !leftover_->hasDeadline) {
    leftover_.reset();
  }
}

void ServerConnection::setDeadline(DeadlineQueue& queue) {
  if (!leftover().hasDeadline) {
    leftover_->hasDeadline = true;
    leftover_->deadline = queue.add(*this);
  }
}

void ServerConnection::removeDeadline() {
  (phase_ == Phase::lingering ? loop_.lingerers() : loop_.partialFrames())
      .remove(leftover_->deadline);
  leftover_->hasDeadline = false;
}

void ServerConnection::change(Phase before) {
  Poller& poller = loop_.poller();
  switch (phase_) {
    case Phase::delivering:
      // A peer that hangs up meanwhile must not wake the loop again and again.
      poller.remove(descriptor_);
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
  // Closing the descriptor does not end the watching if a process that was forked meanwhile shares
  // the socket.
  loop_.poller().remove(descriptor_);
  loop_.forget(*this);
}

}  // namespace sorvane
