#include "support/RawConnection.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <utility>

namespace sorvane::test {

std::string frame(const Message& message) {
  std::string body;
  for (const MessageEntry& each : message.entries()) {
    body += entry(each.key, each.value);
  }
  return frameOfBody(body);
}

Message RawFrame::message() const {
  Message view;
  const char* fault = view.readBody(body);
  EXPECT_EQ(fault, nullptr) << fault;
  return view.owned();
}

RawConnection::RawConnection(int port) : socket_(socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(static_cast<std::uint16_t>(port));
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(socket_, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    close();
  }
}

RawConnection RawConnection::ofSocket(int socket) {
  RawConnection connection;
  connection.socket_ = socket;
  return connection;
}

RawConnection::~RawConnection() { close(); }

RawConnection::RawConnection(RawConnection&& other) noexcept
    : socket_(std::exchange(other.socket_, -1)) {}

RawConnection& RawConnection::operator=(RawConnection&& other) noexcept {
  std::swap(socket_, other.socket_);
  return *this;
}

bool RawConnection::send(std::string_view bytes) {
  while (!bytes.empty()) {
    const ssize_t count = ::send(socket_, bytes.data(), bytes.size(), MSG_NOSIGNAL);
    if (count < 0) {
      return false;
    }
    bytes.remove_prefix(static_cast<std::size_t>(count));
  }
  return true;
}

bool RawConnection::waitReadable(std::chrono::milliseconds limit) const {
  pollfd waiting{socket_, POLLIN, 0};
  return poll(&waiting, 1, static_cast<int>(limit.count())) > 0;
}

std::string RawConnection::receive(std::size_t count) {
  std::string bytes;
  while (bytes.size() < count) {
    if (!waitReadable(kPatience)) {
      ADD_FAILURE() << "nothing came after " << bytes.size() << " of " << count << " bytes";
      break;
    }
    char chunk[65536];
    const ssize_t got = recv(socket_, chunk, std::min(sizeof chunk, count - bytes.size()), 0);
    if (got <= 0) {
      break;
    }
    bytes.append(chunk, static_cast<std::size_t>(got));
  }
  return bytes;
}

std::optional<RawFrame> RawConnection::receiveFrame() {
  const std::string header = receive(8);
  if (header.size() < 8) {
    return std::nullopt;
  }
  EXPECT_EQ(header.substr(0, 3), "SV\x01");
  const std::size_t length = bodyLength(header);
  RawFrame reply{header[3], receive(length)};
  return reply.body.size() == length ? std::optional(std::move(reply)) : std::nullopt;
}

std::optional<RawFrame> RawConnection::ask(const Message& request) {
  send(frame(request));
  return receiveFrame();
}

bool RawConnection::isClosedByPeer(std::chrono::milliseconds limit) {
  char byte = 0;
  return waitReadable(limit) && recv(socket_, &byte, 1, 0) <= 0;
}

bool RawConnection::staysSilent(std::chrono::milliseconds time) { return !waitReadable(time); }

void RawConnection::shutdownWriting() { shutdown(socket_, SHUT_WR); }

void RawConnection::close() {
  if (socket_ >= 0) {
    ::close(std::exchange(socket_, -1));
  }
}

}  // namespace sorvane::test
