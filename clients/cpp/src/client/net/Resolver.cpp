#include "client/net/Resolver.h"

#include <netdb.h>

#include <cstring>
#include <mutex>

#include "client/net/Thread.h"
#include "client/net/WakePipe.h"

namespace sorvane::client::detail {
namespace {

struct Found {
  std::string failure;  // in words; empty for success
  std::vector<SocketAddress> addresses;
};

Found ask(const std::string& host, int flags) {
  addrinfo hints{};
  hints.ai_flags = flags;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* list = nullptr;
  Found found;
  if (const int status = getaddrinfo(host.c_str(), nullptr, &hints, &list); status != 0) {
    found.failure = gai_strerror(status);
    return found;
  }
  for (const addrinfo* each = list; each != nullptr; each = each->ai_next) {
    if (each->ai_family == AF_INET || each->ai_family == AF_INET6) {
      SocketAddress address;
      std::memcpy(&address.storage, each->ai_addr, each->ai_addrlen);
      address.size = each->ai_addrlen;
      found.addresses.push_back(address);
    }
  }
  freeaddrinfo(list);
  if (found.addresses.empty()) {
    found.failure = "the host has no address";
  }
  return found;
}

}  // namespace

struct Resolver::LookUp {
  WakePipe done;
  std::mutex mutex;
  Found found;  // guarded by mutex
};

Result<std::vector<SocketAddress>> Resolver::addresses(const Limit& limit) {
  if (host_ == "localhost") {
    auto both = ask("127.0.0.1", AI_NUMERICHOST).addresses;
    const auto second = ask("::1", AI_NUMERICHOST).addresses;
    both.insert(both.end(), second.begin(), second.end());
    return both;
  }
  if (auto known = ask(host_, AI_NUMERICHOST); known.failure.empty()) {
    return std::move(known.addresses);
  }
  if (!pending_) {
    const auto lookUp = std::make_shared<LookUp>();
    std::thread thread;
    if (lookUp->done.open()) {
      thread = startThread([lookUp, host = host_] {
        Found found = ask(host, 0);
        const std::lock_guard<std::mutex> hold(lookUp->mutex);
        lookUp->found = std::move(found);
        lookUp->done.wake();
      });
    }
    if (!thread.joinable()) {
      return Error{ErrorCode::system, "no descriptor or thread is left to look up " + host_};
    }
    thread.detach();
    pending_ = lookUp;
  }
  if (waitForReading(pending_->done.descriptor(), limit) != Woken::ready) {
    return Error{ErrorCode::timedOut, host_ + ": looking up the host takes too long"};
  }
  const auto lookUp = std::exchange(pending_, nullptr);
  const std::lock_guard<std::mutex> hold(lookUp->mutex);
  if (!lookUp->found.failure.empty()) {
    return Error{ErrorCode::unreachable, host_ + ": " + lookUp->found.failure};
  }
  return std::move(lookUp->found.addresses);
}

}  // namespace sorvane::client::detail
