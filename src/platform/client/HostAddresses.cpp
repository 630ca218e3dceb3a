#include "platform/HostAddresses.h"

#include <netdb.h>
#include <sys/socket.h>

#include <cerrno>
#include <future>
#include <memory>
#include <system_error>
#include <thread>

namespace sorvane {

namespace {

std::string numericText(const addrinfo& entry) {
  char text[NI_MAXHOST];
  if (getnameinfo(entry.ai_addr, entry.ai_addrlen, text, sizeof text, nullptr, 0, NI_NUMERICHOST) !=
      0) {
    return {};
  }
  return text;
}

HostAddresses askResolver(const std::string& host, int flags) {
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = flags;
  addrinfo* entries = nullptr;
  const int status = getaddrinfo(host.c_str(), nullptr, &hints, &entries);
  if (status == EAI_SYSTEM) {
    return {{}, std::generic_category().message(errno)};
  }
  if (status != 0) {
    return {{}, gai_strerror(status)};
  }
  const std::unique_ptr<addrinfo, decltype(&freeaddrinfo)> release(entries, &freeaddrinfo);
  HostAddresses found;
  for (const addrinfo* entry = entries; entry != nullptr; entry = entry->ai_next) {
    if (std::string address = numericText(*entry); !address.empty()) {
      found.addresses.push_back(std::move(address));
    }
  }
  if (found.addresses.empty()) {
    found.failure = "the name has no address";
  }
  return found;
}

}  // namespace

HostAddresses addressesOfHost(const std::string& host,
                              std::chrono::steady_clock::time_point deadline) {
  if (HostAddresses numeric = askResolver(host, AI_NUMERICHOST); !numeric.addresses.empty()) {
    return numeric;
  }
  std::packaged_task<HostAddresses()> task([host] { return askResolver(host, 0); });
  std::future<HostAddresses> answer = task.get_future();
  try {
    std::thread(std::move(task)).detach();
  } catch (const std::system_error& error) {
    return {{}, error.what()};
  }
  if (answer.wait_until(deadline) != std::future_status::ready) {
    return {{}, "the name was not resolved in time", true};
  }
  return answer.get();
}

}  // namespace sorvane
