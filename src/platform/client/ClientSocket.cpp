#include "platform/client/ClientSocket.h"

#include <array>
#include <asio/buffer.hpp>
#include <asio/connect.hpp>
#include <asio/io_context.hpp>
#include <asio/ip/tcp.hpp>
#include <asio/write.hpp>
#include <cerrno>
#include <cstdint>
#include <functional>

#include "platform/Descriptor.h"

namespace sorvane {

namespace {

constexpr std::size_t kReadBytes = std::size_t{64} << 10;
constexpr const char* kNoAnswer = "no answer in time";

bool isOver(ClientSocket::Deadline deadline) {
  return std::chrono::steady_clock::now() >= deadline;
}

ClientSocket::Reason notInTime(const char* words) { return {words, false}; }

ClientSocket::Reason reason(const asio::error_code& error) {
  if (error == asio::error::eof) {
    return {"the server closed the connection", true};
  }
  return {error.message(),
          error == asio::error::connection_reset || error == asio::error::broken_pipe};
}

}  // namespace

struct ClientSocket::Loop {
  asio::io_context io{1};
  asio::ip::tcp::socket socket{io};
  std::array<char, kReadBytes> chunk;

  /// Runs the loop until `flag` is set. Returns false if the deadline came first.
  bool runUntil(const bool& flag, Deadline deadline) {
    io.restart();
    while (!flag && io.run_one_until(deadline) > 0) {
    }
    return flag;
  }

  /// Cancels all operations. Their handlers have run when this returns.
  void cancelAll() {
    asio::error_code ignored;
    socket.cancel(ignored);
    io.restart();
    io.run();
  }

  /// The system chooses the port of this end. Where nothing listens, it may choose the very port
  /// that is connected to, and TCP then connects the socket to itself.
  [[nodiscard]] bool isConnectedToItself() const {
    asio::error_code error;
    const asio::ip::tcp::endpoint own = socket.local_endpoint(error);
    const asio::ip::tcp::endpoint peer = socket.remote_endpoint(error);
    return !error && own == peer;
  }

  Failure attempt(const asio::ip::tcp::endpoint& endpoint, Deadline deadline) {
    asio::error_code result;
    Descriptor opened = openSocket(endpoint.protocol().family(), endpoint.protocol().type());
    if (!opened.isOpen()) {
      return reason({errno, asio::error::get_system_category()});
    }
    socket = asio::ip::tcp::socket(io);
    socket.assign(endpoint.protocol(), opened.number(), result);
    if (result) {
      return reason(result);
    }
    static_cast<void>(opened.release());  // the socket object has it now
    bool finished = false;
    socket.async_connect(endpoint, [&](const asio::error_code& error) {
      result = error;
      finished = true;
    });
    if (!runUntil(finished, deadline)) {
      cancelAll();
      return notInTime(kNoAnswer);
    }
    if (!result && isConnectedToItself()) {
      asio::error_code ignored;
      socket.close(ignored);
      result = asio::error::connection_refused;
    }
    if (result) {
      return reason(result);
    }
    socket.set_option(asio::ip::tcp::no_delay(true), result);
    socket.non_blocking(true, result);
    return result ? Failure(reason(result)) : std::nullopt;
  }

  /// Takes what has arrived, without waiting. Returns `would_block` if nothing has.
  asio::error_code readArrived(std::string& input) {
    asio::error_code error;
    const std::size_t count = socket.read_some(asio::buffer(chunk), error);
    input.append(chunk.data(), count);
    return error;
  }

  Failure sendWhileReading(std::string_view bytes, std::string& input, std::size_t maximumInput,
                           Deadline deadline) {
    bool finished = false;
    bool stopping = false;
    asio::error_code result;
    const std::function<void()> readOn = [&] {
      socket.async_read_some(asio::buffer(chunk),
                             [&](const asio::error_code& error, std::size_t count) {
                               input.append(chunk.data(), count);
                               if (!error && !stopping && input.size() < maximumInput) {
                                 readOn();
                               }
                             });
    };
    if (input.size() < maximumInput) {
      readOn();
    }
    asio::async_write(socket, asio::buffer(bytes.data(), bytes.size()),
                      [&](const asio::error_code& error, std::size_t) {
                        result = error;
                        finished = true;
                      });
    const bool inTime = runUntil(finished, deadline);
    stopping = true;
    cancelAll();
    if (!inTime) {
      return notInTime("the server did not take the request in time");
    }
    return result ? Failure(reason(result)) : std::nullopt;
  }
};

ClientSocket::ClientSocket() : loop_(std::make_unique<Loop>()) {}
ClientSocket::~ClientSocket() = default;

ClientSocket::Failure ClientSocket::connect(const std::vector<std::string>& addresses, int port,
                                            Deadline deadline) {
  Failure failure;
  auto left = static_cast<int>(addresses.size());
  for (const std::string& text : addresses) {
    asio::error_code error;
    const asio::ip::address address = asio::ip::make_address(text, error);
    const auto now = std::chrono::steady_clock::now();
    failure = error ? Failure(reason(error))
                    : loop_->attempt({address, static_cast<std::uint16_t>(port)},
                                     now + (deadline - now) / left--);
    if (!failure) {
      return std::nullopt;
    }
  }
  close();
  return failure;
}

ClientSocket::Failure ClientSocket::send(std::string_view bytes, std::string& input,
                                         std::size_t maximumInput, Deadline deadline) {
  asio::error_code error;
  while (!bytes.empty() && !error) {
    bytes.remove_prefix(loop_->socket.write_some(asio::buffer(bytes.data(), bytes.size()), error));
  }
  Failure failure;
  if (error == asio::error::would_block) {
    failure = loop_->sendWhileReading(bytes, input, maximumInput, deadline);
  } else if (error) {
    failure = reason(error);
  }
  if (failure) {
    while (input.size() < maximumInput && !isOver(deadline) && !loop_->readArrived(input)) {
    }
  }
  return failure;
}

ClientSocket::Failure ClientSocket::receive(std::string& input, Deadline deadline) {
  if (isOver(deadline)) {
    return notInTime(kNoAnswer);
  }
  asio::error_code error = loop_->readArrived(input);
  while (error == asio::error::would_block) {
    bool readable = false;
    loop_->socket.async_wait(asio::ip::tcp::socket::wait_read,
                             [&](const asio::error_code&) { readable = true; });
    if (!loop_->runUntil(readable, deadline)) {
      loop_->cancelAll();
      return notInTime(kNoAnswer);
    }
    error = loop_->readArrived(input);
  }
  return error ? Failure(reason(error)) : std::nullopt;
}

std::string ClientSocket::peerAddress() const {
  asio::error_code error;
  const asio::ip::tcp::endpoint peer = loop_->socket.remote_endpoint(error);
  return error ? std::string() : peer.address().to_string();
}

int ClientSocket::descriptor() const { return loop_->socket.native_handle(); }

void ClientSocket::close() {
  asio::error_code ignored;
  loop_->socket.close(ignored);
}

}  // namespace sorvane
