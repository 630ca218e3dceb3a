// The server: its loops, each on a thread of its own, and what the loops share.
#include <errno.h>
#include <sys/resource.h>

#include <cstddef>
#include <functional>
#include <latch>
#include <memory>
#include <system_error>
#include <thread>
#include <vector>

#include "platform/ConnectionLimit.h"
#include "platform/Console.h"
#include "platform/NetConnection.h"
#include "platform/Settings.h"
#include "platform/SurvivingSockets.h"
#include "platform/host/UsableCores.h"
#include "platform/server/Acceptor.h"
#include "platform/server/ContinuedConnections.h"
#include "platform/server/RunningLoops.h"
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

std::vector<std::unique_ptr<ServingLoop>> makeLoops(ServerContext& context, int count) {
  std::vector<std::unique_ptr<ServingLoop>> loops;
  loops.reserve(static_cast<std::size_t>(count));
  for (int i = 0; i < count; ++i) {
    loops.push_back(std::make_unique<ServingLoop>(context));
  }
  return loops;
}

/// What a server consists of. The threads never end, so what they share is never destroyed. That
/// also holds if a server is not begun because the system has no descriptor or thread left.
struct Server {
  Server(int socket, NetConnectionDelegate& delegate, const Settings& settings, int threads)
      : context{delegate,
                *new WaitingThreads(kWaitingThreads),
                settings.maxMessageBytes,
                settings.partialMessageTimeout,
                settings.allowedNetworks,
                ByteSum(settings.maxUnfinishedBytes),
                UntakenTotal(settings.maxUnsentBytes)},
        loops(makeLoops(context, threads)),
        acceptor(socket, connectionLimit(settings.maxConnections, threads), context, loops),
        running(context, loops, acceptor) {
    if (!loops.front()->poller().add(socket, Poller::Interest::readable, &acceptor)) {
      throw std::system_error(errno, std::generic_category(),
                              "the server socket cannot be watched");
    }
  }

  [[noreturn]] void run();

  ServerContext context;
  const std::vector<std::unique_ptr<ServingLoop>> loops;
  Acceptor acceptor;
  RunningLoops running;
  std::latch beginning{1};  // of all loops
};

Server& makeServer(int socket, NetConnectionDelegate& delegate) {
  const Settings& settings = Settings::current();
  const int threads = settings.threads > 0 ? settings.threads : usableCores();
  threadOf(Disk::log);  // starts the threads of all disks before the first connection comes
  return *new Server(socket, delegate, settings, threads);
}

void Server::run() {
  for (std::size_t i = 1; i < loops.size(); ++i) {
    std::thread([this, &loop = *loops[i]] {
      beginning.wait();
      loop.run(nullptr);
    }).detach();
  }
  context.delegate.servingBegins(running);
  beginning.count_down();
  loops.front()->run(&acceptor);
}

}  // namespace

void NetConnection::runServerForSocket(int socket, NetConnectionDelegate& delegate) {
  makeServer(socket, delegate).run();
}

void NetConnection::continueServer(KeptReader& reader, NetConnectionDelegate& delegate) {
  Server* server = nullptr;
  {
    const KeptServer kept = readKeptServer(reader);
    checkKeptDescriptors(kept);
    server = &makeServer(kept.listener, delegate);
    continueConnections(kept, &reader, server->loops, server->context);
  }
  server->run();
}

void NetConnection::continueServer(const SurvivingSockets& sockets,
                                   NetConnectionDelegate& delegate) {
  Server* server = nullptr;
  {
    KeptServer kept;
    kept.listener = sockets.listener;
    kept.connections.reserve(sockets.connections.size());
    for (const int each : sockets.connections) {
      kept.connections.emplace_back().descriptor = each;
    }
    checkKeptDescriptors(kept);
    server = &makeServer(kept.listener, delegate);
    continueConnections(kept, nullptr, server->loops, server->context);
  }
  server->run();
}

void NetConnection::performWaiting(Disk disk, std::function<void()> work) {
  if (ServingLoop::isServingThread()) {
    threadOf(disk).run(std::move(work));
  } else {
    work();
  }
}

}  // namespace sorvane
