// Which connections of a server are at work, as seen after the death of the process that serves.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "platform/SharedMemory.h"

namespace sorvane {

/// A mark for each connection, called by its descriptor. A connection is at work from the moment at
/// which something of a request may have been taken until the reply is wholly sent: whoever goes on
/// after a death cannot know what it was promised. Make it before the process is forked that
/// serves. Any thread; a mark belongs to whoever has the connection.
class WorkMarks {
 public:
  /// For connections whose descriptors are below `descriptors`. Raises std::bad_alloc.
  explicit WorkMarks(std::size_t descriptors)
      : descriptors_(descriptors), memory_((descriptors / kBlock + 1) * kBlock * sizeof(Mark)) {}

  void setAtWork(int connection) { set(connection, 1); }
  void setAtRest(int connection) { set(connection, 0); }
  /// Also true for a connection that has no mark.
  [[nodiscard]] bool isAtWork(int connection) const {
    return !hasMark(connection) || mark(connection).load(std::memory_order_relaxed) != 0;
  }

 private:
  using Mark = std::atomic<std::uint32_t>;

  // Serving threads set the marks of their own connections at the same time. So marks of one cache
  // line are those of connections whose numbers are far from each other.
  static constexpr std::size_t kOfLine = 64 / sizeof(Mark);
  static constexpr std::size_t kDistance = 1024;
  static constexpr std::size_t kBlock = kDistance * kOfLine;
  static std::size_t place(std::size_t connection) {
    return connection / kBlock * kBlock + connection % kDistance * kOfLine +
           connection % kBlock / kDistance;
  }

  [[nodiscard]] bool hasMark(int connection) const {
    return connection >= 0 && static_cast<std::size_t>(connection) < descriptors_;
  }
  [[nodiscard]] Mark& mark(int connection) const {
    return reinterpret_cast<Mark*>(memory_.bytes())[place(static_cast<std::size_t>(connection))];
  }
  void set(int connection, std::uint32_t value) {
    if (hasMark(connection)) {
      mark(connection).store(value, std::memory_order_relaxed);
    }
  }

  const std::size_t descriptors_;
  SharedMemory memory_;
};

}  // namespace sorvane
