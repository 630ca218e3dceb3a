// The server: its loops, each on a thread of its own, and what the loops share.
#include <errno.h>
#include <sys/resource.h>

#include <cstddef>
#include <functional>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/ConnectionLimit.h"
#include "platform/Console.h"
#include "platform/NetConnection.h"
#include "platform/RunningServer.h"
#include "platform/Settings.h"
#include "platform/host/UsableCores.h"
#include "platform/server/Acceptor.h"
#include "platform/server/ServingLoop.h"
#include "platform/server/WaitingThreads.h"

namespace sorvane {
namespace {

// They wait for locks alone, which are held for a short time.
constexpr std::size_t kWaitingThreads = 4;

int connectionLimit(int setting, int threads) {
  if (setting > 0) {
    return setting;
  }
  constexpr rlim_t kUsual = 1024;
  rlimit limit{};
  const bool isTold = getrlimit(RLIMIT_NOFILE, &limit) == 0;
  return connectionsWithin(isTold ? limit.rlim_cur : kUsual, threads);
}

/// A round takes no memory but its place in the queue of the waiting threads.
class LoopsAndWaitingThreads : public RunningServer {
 public:
  LoopsAndWaitingThreads(const ServerContext& context,
                         const std::vector<std::unique_ptr<ServingLoop>>& loops)
      : context_(context) {
    steps_.reserve(loops.size() + 1);
    for (const auto& loop : loops) {
      steps_.emplace_back(
          [this, &loop = *loop, next = steps_.size() + 1] { loop.perform(steps_[next]); });
    }
    steps_.emplace_back([this] { round_->onServingThread(); });
  }

  void goRound(const Round& round) override {
    // Before the requests that wait: however many these are, the server serves.
    context_.deliveries.runNext([this, &round] {
      round.onWaitingThread();
      round_ = &round;
      steps_.front()();
    });
  }

  [[nodiscard]] int connections() const override {
    return context_.connections.load(std::memory_order_relaxed);
  }

 private:
  // Constant after construction. Each step makes a loop perform the next one.
  const ServerContext& context_;
  std::vector<std::function<void()>> steps_;
  // Handed on from thread to thread with the round.
  const Round* round_ = nullptr;
};

}  // namespace

void NetConnection::runServerForSocket(int socket, NetConnectionDelegate& delegate) {
  const Settings& settings = Settings::current();
  // The threads never end, so what they share is never destroyed. That also holds if this function
  // raises because the system has no descriptor or thread left.
  auto& deliveries = *new WaitingThreads(kWaitingThreads);
  threadOf(Disk::log);  // starts the threads of all disks before the first connection comes
  auto& context = *new ServerContext{delegate,
                                     deliveries,
                                     settings.maxMessageBytes,
                                     settings.partialMessageTimeout,
                                     settings.allowedNetworks,
                                     ByteSum(settings.maxUnfinishedBytes),
                                     UntakenTotal(settings.maxUnsentBytes)};
  auto& loops = *new std::vector<std::unique_ptr<ServingLoop>>;
  const int threads = settings.threads > 0 ? settings.threads : usableCores();
  loops.reserve(static_cast<std::size_t>(threads));
  for (int i = 0; i < threads; ++i) {
    loops.push_back(std::make_unique<ServingLoop>(context));
  }
  auto& acceptor =
      *new Acceptor(socket, connectionLimit(settings.maxConnections, threads), context, loops);
  if (!loops.front()->poller().add(socket, Poller::Interest::readable, &acceptor)) {
    throw std::system_error(errno, std::generic_category(), "the server socket cannot be watched");
  }
  for (int i = 1; i < threads; ++i) {
    std::thread([&loop = *loops[static_cast<std::size_t>(i)]] { loop.run(nullptr); }).detach();
  }
  delegate.servingBegins(*new LoopsAndWaitingThreads(context, loops));
  loops.front()->run(&acceptor);
}

void NetConnection::performWaiting(Disk disk, std::function<void()> work) {
  if (ServingLoop::isServingThread()) {
    threadOf(disk).run(std::move(work));
  } else {
    work();
  }
}

}  // namespace sorvane
