// TCP sockets of the measurement: blocking, over loopback, every failure an exception.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace sorvane::bench {

/// Owns a descriptor.
class Socket {
 public:
  Socket() = default;
  explicit Socket(int descriptor) : descriptor_(descriptor) {}
  Socket(Socket&& other) noexcept;
  Socket& operator=(Socket&& other) noexcept;
  ~Socket() { close(); }

  [[nodiscard]] int descriptor() const { return descriptor_; }
  void close();

  void sendAll(std::string_view bytes) const;
  /// The next `count` bytes.
  [[nodiscard]] std::string receive(std::size_t count) const;
  /// The next whole frame of the name server's protocol, its header included.
  [[nodiscard]] std::string receiveFrame() const;

 private:
  int descriptor_ = -1;
};

/// 127.0.0.1 as a number; adding to it gives further addresses of this machine.
inline constexpr std::uint32_t kLoopback = 0x7f000001;

/// Connects to a port of this machine. Raises when that fails, or with `refusalIsFine` returns a
/// socket whose descriptor is -1.
[[nodiscard]] Socket connectTo(int port, std::uint32_t address = kLoopback,
                               bool refusalIsFine = false);
/// A listening socket on a free port of all IPv4 addresses, whose connections send without delay.
[[nodiscard]] Socket listenOnFreePort();
[[nodiscard]] int portOf(const Socket& listener);
/// A port on which nothing listens, nor on the one below. It lies below the range from which the
/// system gives ports to clients, and has five digits, as the port numbers have that a name server
/// there assigns.
[[nodiscard]] int freePort();

[[noreturn]] void throwSystemError(const std::string& what);

}  // namespace sorvane::bench
