#include "support/ScriptedPeer.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <stdexcept>

#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {

namespace {

/// A socket bound to a free port of an IPv4 address.
int boundSocket(const char* text, int& port) {
  const int bound = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  inet_pton(AF_INET, text, &address.sin_addr);
  socklen_t size = sizeof address;
  if (bind(bound, reinterpret_cast<const sockaddr*>(&address), size) != 0 ||
      getsockname(bound, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
    throw std::runtime_error("no port for a peer");
  }
  port = ntohs(address.sin_port);
  return bound;
}

}  // namespace

bool PeerConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count <= 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

std::string PeerConnection::receive(std::size_t count) {
  std::string bytes(count, '\0');
  std::size_t got = 0;
  while (got < count) {
    const ssize_t more = recv(socket_, bytes.data() + got, count - got, 0);
    if (more <= 0) {
      break;
    }
    got += static_cast<std::size_t>(more);
  }
  bytes.resize(got);
  return bytes;
}

std::optional<std::string> PeerConnection::receiveRequest() {
  const std::string header = receive(8);
  if (header.size() < 8) {
    return std::nullopt;
  }
  return receive(bodyLength(header));
}

void PeerConnection::shutdownWriting() { shutdown(socket_, SHUT_WR); }

void PeerConnection::waitForClose() {
  while (!receive(1).empty()) {
  }
}

bool PeerConnection::isClosedByPeer(std::chrono::milliseconds limit) {
  pollfd waiting{socket_, POLLIN, 0};
  char byte = 0;
  return poll(&waiting, 1, static_cast<int>(limit.count())) > 0 &&
         recv(socket_, &byte, 1, MSG_PEEK) <= 0;
}

ScriptedPeer::ScriptedPeer(Script script, const char* address)
    : listener_(boundSocket(address, port_)) {
  if (listen(listener_, 16) != 0) {
    throw std::runtime_error("a peer cannot listen");
  }
  thread_ = std::thread([this, script = std::move(script)] { serve(script); });
}

ScriptedPeer::~ScriptedPeer() {
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    ending_ = true;
    shutdown(listener_, SHUT_RDWR);
    if (current_ >= 0) {
      shutdown(current_, SHUT_RDWR);
    }
  }
  thread_.join();
  close(listener_);
}

int ScriptedPeer::connections() const {
  const std::lock_guard<std::mutex> hold(mutex_);
  return connections_;
}

bool ScriptedPeer::accepts(int connections) const {
  std::unique_lock<std::mutex> hold(mutex_);
  return changed_.wait_for(hold, kPatience, [&] { return connections_ >= connections; });
}

bool ScriptedPeer::finishes(int connections) const {
  std::unique_lock<std::mutex> hold(mutex_);
  return changed_.wait_for(hold, kPatience, [&] { return finished_ >= connections; });
}

bool ScriptedPeer::begin(int accepted) {
  const std::lock_guard<std::mutex> hold(mutex_);
  if (!ending_) {
    current_ = accepted;
    ++connections_;
    changed_.notify_all();
  }
  return !ending_;
}

bool ScriptedPeer::finish() {
  const std::lock_guard<std::mutex> hold(mutex_);
  current_ = -1;
  ++finished_;
  changed_.notify_all();
  return !ending_;
}

void ScriptedPeer::serve(const Script& script) {
  while (true) {
    const int accepted = accept4(listener_, nullptr, nullptr, SOCK_CLOEXEC);
    if (!begin(accepted)) {
      close(accepted);
      return;
    }
    PeerConnection connection(accepted);
    script(connection);
    const bool goesOn = finish();
    close(accepted);
    if (!goesOn) {
      return;
    }
  }
}

int closedPort() {
  int port = 0;
  close(boundSocket(kPeerAddress, port));
  return port;
}

}  // namespace sorvane::test
