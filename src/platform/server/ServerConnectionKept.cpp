// What becomes of a connection that is handed on to another program.
//
// Each function that describes something begins with the names of all of its members. A member that
// is added later does not compile until somebody has decided here what becomes of it.
#include <cstdlib>

#include "platform/server/ServerConnection.h"
#include "platform/server/ServingLoop.h"

namespace sorvane {
namespace {

// A structured binding cannot name the members of a class whose base has some.
static_assert(sizeof(NetConnection) == sizeof(std::shared_ptr<void>) + 3 * sizeof(void*),
              "what becomes of a further member when a connection is handed on?");
static_assert(sizeof(ServerConnection) == sizeof(NetConnection) + sizeof(ConnectionState),
              "a further member belongs into ConnectionState");
static_assert(sizeof(ConnectionState) == 3 * sizeof(void*) + 8, "no byte of it is unused");

KeptConnection::Phase keptPhase(ConnectionState::Phase phase) {
  switch (phase) {
    case ConnectionState::Phase::reading:
      return KeptConnection::Phase::reading;
    case ConnectionState::Phase::sending:
      return KeptConnection::Phase::sending;
    case ConnectionState::Phase::holding:
      return KeptConnection::Phase::holding;
    case ConnectionState::Phase::lingering:
      return KeptConnection::Phase::lingering;
    case ConnectionState::Phase::delivering:
      break;  // no connection is, during a pause
  }
  std::abort();
}

ConnectionState::Phase phaseOf(KeptConnection::Phase phase) {
  switch (phase) {
    case KeptConnection::Phase::reading:
      return ConnectionState::Phase::reading;
    case KeptConnection::Phase::sending:
      return ConnectionState::Phase::sending;
    case KeptConnection::Phase::holding:
      return ConnectionState::Phase::holding;
    case KeptConnection::Phase::lingering:
      return ConnectionState::Phase::lingering;
  }
  std::abort();
}

std::chrono::milliseconds timeUntil(DeadlineQueue::Clock::time_point due,
                                    DeadlineQueue::Clock::time_point now) {
  return std::chrono::ceil<std::chrono::milliseconds>(std::max(due, now) - now);
}

}  // namespace

KeptConnection ServerConnection::kept(DeadlineQueue::Clock::time_point now) const {
  const ConnectionState& state = *this;
  const auto& [loop, descriptor, phase, refused, ended, leftover, held] = state;
  KeptConnection kept;
  kept.descriptor = descriptor;
  kept.phase = keptPhase(phase);
  kept.isRefused = refused;
  kept.isEnded = ended;
  if (leftover != nullptr) {
    // A waiting thread leaves `reply` to `closingReason` for the loop, which has taken them.
    const auto& [input, inputShare, output, reply, closingReason, fault, reason, queue, deadline] =
        *leftover;
    kept.input = input.kept();
    kept.replies = output.kept();
    if (queue != nullptr) {
      const auto& [due, connection] = *deadline;
      kept.deadline = timeUntil(due, now);
    }
  }
  if (phase == Phase::holding) {
    kept.holdingTime = timeUntil(held->due, now);
  }
  return kept;
}

ServerConnection::ServerConnection(const KeptConnection& kept, ServingLoop& loop)
    : ConnectionState{.loop_ = loop,
                      .descriptor_ = kept.descriptor,
                      .phase_ = phaseOf(kept.phase),
                      .refused_ = kept.isRefused,
                      .ended_ = kept.isEnded} {
  if (!kept.input.empty()) {
    Input& input = leftover().input;
    input.append(kept.input);
    leftover_->inputShare.addAnyway(input.capacity());
    // Its complete frames are known, as they were.
    static_cast<void>(input.firstUnfinished(loop.context().maximumBodyBytes));
  }
  if (!kept.replies.empty()) {
    leftover().output.restore(kept.replies);
  }
  noteWork(!isAtRest());
}

void ServerConnection::restoreDeadline(std::chrono::milliseconds left) {
  DeadlineQueue& queue = phase_ == Phase::sending     ? loop_.untakenReplies()
                         : phase_ == Phase::lingering ? loop_.lingerers()
                                                      : loop_.partialFrames();
  leftover().queue = &queue;
  leftover_->deadline = queue.add(*this, left);
}

// A smaller limit on requests may have made a header behind it a bad one.
void ServerConnection::restoreHeld(std::chrono::milliseconds left) {
  held_ = std::make_unique<HeldRequest>(*this);
  loop_.holdOn(*held_, setDeadlineBehind() ? left : std::chrono::milliseconds(0));
}

void ServerConnection::watch() {
  const auto interest =
      phase_ == Phase::sending ? Poller::Interest::writable : Poller::Interest::readable;
  if (!loop_.poller().add(descriptor_, interest, this)) {
    closeNow();
  }
}

}  // namespace sorvane
