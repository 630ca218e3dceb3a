#include "platform/server/ServingLoop.h"

#include <algorithm>
#include <new>
#include <utility>

#include "platform/server/Acceptor.h"
#include "platform/server/ServerConnection.h"

namespace sorvane {
namespace {

thread_local bool servingThread = false;

}  // namespace

ServingLoop::ServingLoop(ServerContext& context)
    : context_(context),
      partialFrames_(context.partialMessageTimeout),
      untakenReplies_(context.untakenReplyTimeout),
      lingerers_(kLinger),
      input_(std::make_unique_for_overwrite<char[]>(kInputBytes)) {}

ServingLoop::~ServingLoop() = default;

bool ServingLoop::isServingThread() { return servingThread; }

void ServingLoop::run(Acceptor* acceptor) {
  servingThread = true;
  for (;;) {
    takeTurn(acceptor);
    if (context_.pause.isAskedFor()) {
      context_.pause.stand([this] { settle(); });
    }
  }
}

// What has begun to be served when the memory runs out is lost: nobody can tell how far it has
// come.
template <typename Step>
void ServingLoop::serve(ServerConnection& connection, Step step) {
  try {
    step();
  } catch (const std::bad_alloc&) {
    output_.clear();
    connection.closeForWantOfMemory();
  }
}

void ServingLoop::takeTurn(Acceptor* acceptor) {
  ++turn_;
  const std::span<const Poller::Event> events = poller_.wait(waitingTime(acceptor));
  for (const Poller::Event& event : events) {
    if (event.owner == nullptr) {
      handleWakeUp();
    } else if (context_.pause.isAskedFor()) {
      continue;  // the poller tells of it again
    } else if (event.owner == acceptor) {
      acceptor->acceptSome(turn_, events.size(), poller_);
    } else {
      ServerConnection& connection = *static_cast<ServerConnection*>(event.owner);
      serve(connection, [&] { connection.handle(event); });
    }
  }
  expireDeadlines();
  noteChanges();
  if (held_.isAsking()) {
    askHeld();
    noteChanges();  // requests that waited behind held ones may have made some
  }
  if (acceptor != nullptr && acceptor->isPaused() &&
      DeadlineQueue::Clock::now() >= acceptor->pausedUntil()) {
    acceptor->goOn(poller_);
  }
}

std::unique_ptr<ServerConnection>& ServingLoop::placeFor(int descriptor) {
  const auto index = static_cast<std::size_t>(descriptor);
  if (connections_.size() <= index) {
    connections_.resize(index + 1);
  }
  return connections_[index];
}

void ServingLoop::countOne() {
  context_.connections.fetch_add(1, std::memory_order_relaxed);
  load_.fetch_add(1, std::memory_order_relaxed);
}

void ServingLoop::adopt(int descriptor) {
  ServerConnection* connection = nullptr;
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    std::unique_ptr<ServerConnection>& place = placeFor(descriptor);
    place = std::make_unique<ServerConnection>(descriptor, *this);
    connection = place.get();
  }
  countOne();
  connection->start();
}

void ServingLoop::take(std::unique_ptr<ServerConnection>& connection) {
  const std::lock_guard<std::mutex> hold(mutex_);
  placeFor(connection->descriptor()) = std::move(connection);
  countOne();
}

// All else that a loop has is made anew where its connections go on: deadlines and held requests
// are handed on with their connections. A further member does not compile until somebody has
// decided what becomes of it.
void ServingLoop::forEachConnection(const std::function<void(ServerConnection&)>& use) {
  auto& [context, poller, turn, partialFrames, untakenReplies, lingerers, held, known, told,
         sleeper, input, output, request, aside, load, toPerform, mutex, delivered, connections] =
      *this;
  const std::lock_guard<std::mutex> hold(mutex);
  for (const auto& each : connections) {
    if (each != nullptr) {
      use(*each);
    }
  }
}

void ServingLoop::forget(ServerConnection& connection) {
  context_.connections.fetch_sub(1, std::memory_order_relaxed);
  load_.fetch_sub(1, std::memory_order_relaxed);
  std::unique_ptr<ServerConnection> last;
  const std::lock_guard<std::mutex> hold(mutex_);
  last = std::move(connections_[static_cast<std::size_t>(connection.descriptor())]);
}

void ServingLoop::delivered(ServerConnection& connection) {
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    delivered_.push_back(&connection);
  }
  poller_.wake();
}

void ServingLoop::perform(const std::function<void()>& work) {
  toPerform_.store(&work, std::memory_order_release);
  poller_.wake();
}

void ServingLoop::handleWakeUp() {
  resumeDelivered();
  if (const auto* const work = toPerform_.exchange(nullptr, std::memory_order_acq_rel)) {
    (*work)();
  }
  if (!context_.pause.setsAside()) {
    deliverAside();
  }
}

void ServingLoop::resumeDelivered() {
  std::vector<ServerConnection*> ready;
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    ready.swap(delivered_);
  }
  for (ServerConnection* const connection : ready) {
    serve(*connection, [=] { connection->resume(); });
  }
}

void ServingLoop::deliverAside() {
  for (ServerConnection* const connection : std::exchange(aside_, {})) {
    serve(*connection, [=] { connection->handToWaitingThread(); });
  }
}

void ServingLoop::settle() {
  resumeDelivered();
  for (ServerConnection* const connection : std::exchange(aside_, {})) {
    serve(*connection, [=] { connection->standBy(); });
  }
}

void ServingLoop::expireDeadlines() {
  for (DeadlineQueue* const queue : {&partialFrames_, &untakenReplies_, &lingerers_}) {
    while (!queue->empty() && queue->next().due <= DeadlineQueue::Clock::now()) {
      ServerConnection& connection = *queue->next().connection;
      serve(connection, [&] { connection.expire(); });
    }
  }
  if (!held_.empty()) {
    expireHeld();
  }
}

void ServingLoop::expireHeld() {
  const auto now = HeldRequests::Clock::now();
  for (int i = 0; i < kHeldAtOnce; ++i) {
    HeldRequest* const request = held_.over(now);
    if (request == nullptr) {
      return;
    }
    ServerConnection& connection = request->connection;
    serve(connection, [&] { connection.answerHeld(true); });
  }
}

// Whatever this thread has asked since the last turn began was asked when there were at least
// `known_` changes.
void ServingLoop::hold(HeldRequest& request, std::chrono::seconds time, bool isAskedHere) {
  if (held_.empty()) {
    told_ = known_;
  }
  if (isAskedHere) {
    held_.add(request, time);
  } else {
    held_.addToAsk(request, time);
  }
}

void ServingLoop::holdOn(HeldRequest& request, std::chrono::milliseconds left) {
  if (held_.empty()) {
    told_ = context_.changes.load(std::memory_order_acquire);
  }
  held_.addToAsk(request, left);
}

// The replies of the turn were sent before: a change costs the one who makes it the same, however
// many requests are held.
void ServingLoop::noteChanges() {
  const std::uint64_t now = context_.changes.load(std::memory_order_acquire);
  if (now != known_) {
    known_ = now;
    context_.sleepers.announce(now, &sleeper_);
  }
  if (now != told_ && !held_.empty() && !held_.isAsking()) {
    told_ = now;
    held_.beginAsking();
  }
}

void ServingLoop::askHeld() {
  for (int i = 0; i < kHeldAtOnce; ++i) {
    HeldRequest* const request = held_.nextToAsk();
    if (request == nullptr) {
      return;
    }
    ServerConnection& connection = request->connection;
    serve(connection, [&] { connection.answerHeld(false); });
  }
}

int ServingLoop::waitingTime(const Acceptor* acceptor) {
  if (held_.isAsking() || (!held_.empty() && !context_.sleepers.maySleep(sleeper_, told_))) {
    return 0;
  }
  auto next = held_.nextDue();
  for (const DeadlineQueue* const queue : {&partialFrames_, &untakenReplies_, &lingerers_}) {
    if (!queue->empty()) {
      next = std::min(next, queue->next().due);
    }
  }
  if (acceptor != nullptr && acceptor->isPaused()) {
    next = std::min(next, acceptor->pausedUntil());
  }
  if (next == DeadlineQueue::Clock::time_point::max()) {
    return Poller::kForever;
  }
  const auto left =
      std::chrono::ceil<std::chrono::milliseconds>(next - DeadlineQueue::Clock::now());
  return static_cast<int>(std::clamp<long long>(left.count(), 0, 60000));
}

}  // namespace sorvane
