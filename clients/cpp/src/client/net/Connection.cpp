#include "client/net/Connection.h"

#include <errno.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <system_error>
#include <vector>

namespace sorvane::client::detail {
namespace {

// The room for a body grows with what has come, not with what is promised.
constexpr std::size_t kPieceBytes = std::size_t{256} << 10;

std::string inWords(int error) { return std::generic_category().message(error); }

/// Closes a connection without leaving its port in use.
void abandon(Descriptor& socket) {
  const linger atOnce{1, 0};
  setsockopt(socket.number(), SOL_SOCKET, SO_LINGER, &atOnce, sizeof atOnce);
  socket.reset();
}

}  // namespace

std::string nameOfThisHost() {
  char name[256] = "";
  gethostname(name, sizeof name - 1);
  return name;
}

std::string Connection::place() const {
  return server_.host + " port " + std::to_string(server_.port);
}

Error Connection::fails(ErrorCode code, const std::string& reason) {
  close();
  return {code, place() + ": " + reason};
}

void Connection::close() {
  if (socket_.isOpen()) {
    // Also when a child process holds the descriptor.
    shutdown(socket_.number(), SHUT_RDWR);
    socket_.reset();
  }
}

Result<void> Connection::open() {
  if (isOpen()) {
    return {};
  }
  Limit limit{after(server_.connectLimit), wake_};
  const auto addresses = resolver_.addresses(limit);
  if (!addresses) {
    return addresses.error();
  }
  const Clock::time_point deadline = limit.deadline;
  Result<void> connected;
  auto left = static_cast<int>(addresses->size());
  for (const SocketAddress& address : *addresses) {
    // One that does not answer leaves time for the others.
    const Clock::time_point now = Clock::now();
    limit.deadline = now + (deadline - now) / left--;
    connected = connectTo(address, limit);
    if (connected) {
      break;
    }
  }
  return connected;
}

Result<void> Connection::connectTo(SocketAddress address, const Limit& limit) {
  address.setPort(server_.port);
  socket_ = Descriptor(socket(address.family(), SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
  if (!socket_.isOpen()) {
    const bool isFull = errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM;
    return fails(isFull ? ErrorCode::system : ErrorCode::unreachable, inWords(errno));
  }
  const int yes = 1;
  setsockopt(socket_.number(), IPPROTO_TCP, TCP_NODELAY, &yes, sizeof yes);
  if (::connect(socket_.number(), address.get(), address.size) != 0) {
    // An interrupted call goes on, too.
    if (errno != EINPROGRESS && errno != EINTR) {
      return fails(ErrorCode::unreachable, inWords(errno));
    }
    if (waitForWriting(socket_.number(), limit) != Woken::ready) {
      return fails(ErrorCode::timedOut, "there is no connection within the time limit");
    }
    int error = 0;
    socklen_t size = sizeof error;
    getsockopt(socket_.number(), SOL_SOCKET, SO_ERROR, &error, &size);
    if (error != 0) {
      return fails(ErrorCode::unreachable, inWords(error));
    }
  }
  const auto ends = endsOf(socket_.number());
  if (!ends) {
    return fails(ErrorCode::unreachable, inWords(ECONNRESET));
  }
  const bool isOwnMachine = ends->peer.isLoopback() || ends->peer.hasHostOf(ends->own);
  if (ends->peer.port() == ends->own.port() && ends->peer.hasHostOf(ends->own)) {
    // The system gave this socket the very port that it was to reach, on which nobody listens.
    abandon(socket_);
    return fails(ErrorCode::unreachable, inWords(ECONNREFUSED));
  }
  ownHost_ = isOwnMachine ? OwnHost{"localhost", "127.0.0.1"}
                          : OwnHost{nameOfThisHost(), ends->own.text()};
  return {};
}

bool Connection::isQuiet() const {
  char byte = 0;
  return isOpen() && recv(socket_.number(), &byte, 1, MSG_PEEK | MSG_DONTWAIT) < 0 &&
         (errno == EAGAIN || errno == EWOULDBLOCK || errno == EINTR);
}

Result<Reply> Connection::ask(const Request& request, std::chrono::milliseconds more) {
  const auto sent = send(request);
  return sent ? receive(more) : sent.error();
}

Result<void> Connection::send(const Request& request) {
  const Limit limit{after(server_.replyLimit), wake_};
  std::string_view bytes = request.frame();
  while (!bytes.empty()) {
    const ssize_t count =
        ::send(socket_.number(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    if (count > 0) {
      bytes.remove_prefix(static_cast<std::size_t>(count));
    } else if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (waitForWriting(socket_.number(), limit) != Woken::ready) {
        return fails(ErrorCode::timedOut, "the name server takes no request");
      }
    } else if (errno != EINTR) {
      return fails(ErrorCode::closed, inWords(errno));
    }
  }
  return {};
}

Result<std::size_t> Connection::receiveSome(char* bytes, std::size_t most, const Limit& limit) {
  while (true) {
    const ssize_t got = recv(socket_.number(), bytes, most, MSG_DONTWAIT);
    if (got > 0) {
      return static_cast<std::size_t>(got);
    }
    if (got == 0) {
      return fails(ErrorCode::closed, "the name server has closed the connection");
    }
    if (errno == EAGAIN || errno == EWOULDBLOCK) {
      if (waitForReading(socket_.number(), limit) != Woken::ready) {
        return fails(ErrorCode::timedOut, "the name server does not reply within the time limit");
      }
    } else if (errno != EINTR) {
      return fails(ErrorCode::closed, inWords(errno));
    }
  }
}

Result<Header> Connection::receiveHeader(const Limit& limit) {
  char bytes[kHeaderBytes] = {};
  for (std::size_t had = 0; had < sizeof bytes;) {
    const auto got = receiveSome(bytes + had, sizeof bytes - had, limit);
    if (!got) {
      return got.error();
    }
    had += *got;
    // What is no reply may have no eight bytes: they are not waited for.
    if (!mayBeginAHeader({bytes, had})) {
      break;
    }
  }
  const auto header = readHeader({bytes, sizeof bytes});
  return header ? Result<Header>(*header) : fails(ErrorCode::protocol, "this is no name server");
}

Result<Reply> Connection::receive(std::chrono::milliseconds more) {
  const Limit limit{after(server_.replyLimit) + more, wake_};
  const auto header = receiveHeader(limit);
  if (!header) {
    return header.error();
  }
  if (!header->isDictionary) {
    return Reply();
  }
  std::vector<char> body;
  while (body.size() < header->bodyBytes) {
    std::size_t had = body.size();
    body.resize(std::min(header->bodyBytes, std::max(kPieceBytes, had * 2)));
    while (had < body.size()) {
      const auto got = receiveSome(body.data() + had, body.size() - had, limit);
      if (!got) {
        return got.error();
      }
      had += *got;
    }
  }
  auto reply = Reply::ofBody(std::move(body));
  if (!reply) {
    return fails(ErrorCode::protocol, "the reply is malformed");
  }
  return std::move(*reply);
}

}  // namespace sorvane::client::detail
