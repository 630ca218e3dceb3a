#include "daemon/ServiceManager.h"

#include <stdlib.h>
#include <string.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <charconv>
#include <cstdint>

#include "platform/Console.h"

namespace sorvane {
namespace {

/// Returns the whole number that is all of `text`; nothing if that is none above 0.
std::optional<std::int64_t> positiveNumber(std::string_view text) {
  std::int64_t number = 0;
  const auto [stop, failure] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (failure != std::errc() || stop != text.data() + text.size() || number <= 0) {
    return std::nullopt;
  }
  return number;
}

/// Returns the path of the manager's socket as the system has it: an abstract name begins with a
/// NUL there.
std::optional<std::string> addressOf(std::string_view socket) {
  if (socket.size() < 2 || socket.size() >= sizeof(sockaddr_un::sun_path) ||
      (socket.front() != '/' && socket.front() != '@')) {
    return std::nullopt;
  }
  std::string address(socket);
  if (address.front() == '@') {
    address.front() = '\0';
  }
  return address;
}

std::string statusText(const ServiceManager::Counts& counts) {
  const auto counted = [](auto count, const char* what) {
    return std::to_string(count) + ' ' + what + (count == 1 ? "" : "s");
  };
  return counted(counts.names, "name") + ", " + counted(counts.connections, "connection");
}

ServiceManager* manager = nullptr;
// Never destroyed: the process may end while another thread reads it.
std::vector<std::string>& takenVariables() {
  static auto* const variables = new std::vector<std::string>;
  return *variables;
}

}  // namespace

ServiceManager::ServiceManager(const char* socket, const char* watchdog,
                               const char* watchdogProcess) {
  if (socket == nullptr) {
    return;
  }
  const std::optional<std::string> address = addressOf(socket);
  if (!address) {
    consoleLine(
        "the service manager is told nothing: NOTIFY_SOCKET is no path and no abstract name");
    return;
  }
  address_ = *address;
  socket_ = openSocket(AF_UNIX, SOCK_DGRAM);
  const std::string thisProcess = std::to_string(getpid());
  if (watchdog != nullptr && (watchdogProcess == nullptr || watchdogProcess == thisProcess)) {
    if (const std::optional<std::int64_t> limit = positiveNumber(watchdog)) {
      watchdog_ = std::chrono::microseconds(*limit);
    } else {
      consoleLine("the watchdog is told nothing: WATCHDOG_USEC is no number above 0");
    }
  }
}

std::chrono::microseconds ServiceManager::interval() const {
  const std::chrono::microseconds longest = kLongestInterval;
  return watchdog_ ? std::clamp(*watchdog_ / 3, std::chrono::microseconds(1), longest) : longest;
}

void ServiceManager::tellServing(const Counts& counts, Clock::time_point now) {
  std::string lines;
  if (!toldCounts_) {
    lines += "READY=1\n";
  }
  if (watchdog_) {
    lines += "WATCHDOG=1\n";
  }
  const bool tellsCounts =
      !toldCounts_ || (*toldCounts_ != counts && now - countsTold_ >= kStatusInterval);
  if (tellsCounts) {
    lines += "STATUS=" + statusText(counts) + '\n';
  }
  if (lines.empty()) {
    return;
  }
  mayBeReady_ = true;
  if (!tell(lines)) {
    return;
  }
  if (tellsCounts) {
    toldCounts_ = counts;
    countsTold_ = now;
  }
}

void ServiceManager::tellStopping() const {
  if (mayBeReady_) {
    static_cast<void>(tell("STOPPING=1\n"));
  }
}

bool ServiceManager::tell(const std::string& lines) const {
  if (address_.empty()) {
    return false;
  }
  sockaddr_un peer{};
  peer.sun_family = AF_UNIX;
  memcpy(peer.sun_path, address_.data(), address_.size());
  // The length tells where an abstract name ends. A path ends with a NUL, which counts as well.
  const std::size_t length =
      offsetof(sockaddr_un, sun_path) + address_.size() + (address_.front() == '/' ? 1 : 0);
  return sendto(socket_.number(), lines.data(), lines.size(), MSG_DONTWAIT | MSG_NOSIGNAL,
                reinterpret_cast<const sockaddr*>(&peer), static_cast<socklen_t>(length)) >= 0;
}

void takeServiceManager() {
  if (const char* const socket = getenv(kNotifySocket)) {
    manager = new ServiceManager(socket, getenv(kWatchdogTime), getenv(kWatchdogProcess));
  }
  for (const char* const variable : kServiceManagerVariables) {
    if (const char* const value = getenv(variable)) {
      takenVariables().push_back(std::string(variable) + '=' + value);
    }
    unsetenv(variable);
  }
}

std::vector<std::string> serviceManagerVariables() { return takenVariables(); }

ServiceManager* serviceManager() { return manager; }

}  // namespace sorvane
