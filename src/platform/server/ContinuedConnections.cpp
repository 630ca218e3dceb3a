#include "platform/server/ContinuedConnections.h"

#include <errno.h>
#include <fcntl.h>
#include <sys/socket.h>

#include <algorithm>
#include <optional>
#include <string>

#include "platform/server/ServerConnection.h"

namespace sorvane {
namespace {

using Made = std::vector<std::unique_ptr<ServerConnection>>;

/// Returns the value of a socket's option; none if that is no socket.
std::optional<int> optionOf(int descriptor, int option) {
  int value = 0;
  socklen_t bytes = sizeof value;
  return getsockopt(descriptor, SOL_SOCKET, option, &value, &bytes) == 0 ? std::optional(value)
                                                                         : std::nullopt;
}

/// Whether that is a stream socket that listens, or one that does not.
bool isStream(int descriptor, bool listens) {
  // What is true has the value 1 on some systems, and any but 0 on others.
  const std::optional<int> listening = optionOf(descriptor, SO_ACCEPTCONN);
  return optionOf(descriptor, SO_TYPE) == SOCK_STREAM && listening && (*listening != 0) == listens;
}

void checkDescriptor(int descriptor, bool isListener) {
  const auto setFlags = [&] {
    const int flags = fcntl(descriptor, F_GETFL);
    return flags >= 0 && fcntl(descriptor, F_SETFL, flags | O_NONBLOCK) == 0 &&
           fcntl(descriptor, F_SETFD, FD_CLOEXEC) == 0;
  };
  if (!isStream(descriptor, isListener) || !setFlags()) {
    throw KeptFault("what was kept has a descriptor, " + std::to_string(descriptor) +
                    (isListener ? ", that is no listening socket" : ", that is no connection"));
  }
}

/// A connection that was kept, and what has become of it.
struct Continued {
  const KeptConnection* kept;
  ServerConnection* made;
};

/// Sets the deadlines, then holds the requests that were held; each in the order of their ends.
void restoreTimes(std::vector<Continued>& all) {
  std::stable_sort(all.begin(), all.end(), [](const Continued& a, const Continued& b) {
    return a.kept->deadline < b.kept->deadline;
  });
  for (const Continued& each : all) {
    if (each.kept->deadline) {
      each.made->restoreDeadline(*each.kept->deadline);
    }
  }
  std::stable_sort(all.begin(), all.end(), [](const Continued& a, const Continued& b) {
    return a.kept->holdingTime < b.kept->holdingTime;
  });
  for (const Continued& each : all) {
    if (each.kept->phase == KeptConnection::Phase::holding) {
      each.made->restoreHeld(each.kept->holdingTime);
    }
  }
}

}  // namespace

void checkKeptDescriptors(const KeptServer& kept) {
  checkDescriptor(kept.listener, true);
  for (const KeptConnection& each : kept.connections) {
    checkDescriptor(each.descriptor, false);
  }
}

void continueConnections(const KeptServer& kept, KeptReader* reader,
                         const std::vector<std::unique_ptr<ServingLoop>>& loops,
                         ServerContext& context) {
  Made made;
  made.reserve(kept.connections.size());
  std::vector<Continued> all;
  all.reserve(kept.connections.size());
  try {
    for (const KeptConnection& each : kept.connections) {
      ServingLoop& loop = *loops[made.size() % loops.size()];
      made.push_back(std::make_unique<ServerConnection>(each, loop));
      all.push_back({&each, made.back().get()});
      if (reader == nullptr) {
        context.delegate.reviveConnection(*made.back());
      } else if (!each.isEnded) {
        context.delegate.restoreConnection(*made.back(), *reader);
      }
    }
    if (reader != nullptr) {
      reader->end();
    }
  } catch (...) {
    for (const auto& each : made) {
      each->release();
    }
    throw;
  }
  for (std::size_t i = 0; i < made.size(); ++i) {
    loops[i % loops.size()]->take(made[i]);
  }
  restoreTimes(all);
  for (const Continued& each : all) {
    each.made->watch();
  }
}

void keepConnections(KeptWriter& writer, int listener,
                     const std::vector<std::unique_ptr<ServingLoop>>& loops,
                     const ServerContext& context) {
  // Settings, sums and what goes on between the loops are made anew.
  const auto& [delegate, deliveries, maximumBodyBytes, partialMessageTimeout, allowedNetworks,
               unfinishedInput, untakenReplies, untakenReplyTimeout, ownAddresses, connectionCount,
               changes, sleepers, pause, marks] = context;
  std::vector<ServerConnection*> all;
  for (const auto& loop : loops) {
    loop->forEachConnection([&](ServerConnection& each) { all.push_back(&each); });
  }
  const auto now = DeadlineQueue::Clock::now();
  KeptConnectionWriter connections(writer, listener, all.size());
  for (const ServerConnection* const each : all) {
    connections.write(each->kept(now));
  }
  for (ServerConnection* const each : all) {
    if (!each->isEnded()) {
      delegate.keepConnection(*each, writer);
    }
  }
}

}  // namespace sorvane
