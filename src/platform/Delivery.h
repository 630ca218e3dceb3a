// How far the delivery of a request has come: to its reply, or to work that needs a disk.
#pragma once

#include <cstdint>
#include <functional>
#include <utility>

#include "platform/Reply.h"

namespace sorvane {

class Message;

/// What may hang without holding up anything else. The server has one thread for each.
enum class Disk : std::uint8_t { log, preferences };

/// Returned by a delivery that waits for no disk.
class [[nodiscard]] Delivery {
 public:
  /// Does what is left and returns the reply; may wait for the disk. It gets the request again. The
  /// message object may be another one, so keep no views of it.
  using Rest = std::function<Reply(const Message& request)>;

  /// Nothing is left to do. Not explicit, so that a delivery returns a reply.
  Delivery(Reply reply) : reply_(reply) {}
  /// `rest` is left to do.
  Delivery(Disk disk, Rest rest) : reply_(Reply::none()), disk_(disk), rest_(std::move(rest)) {}

  [[nodiscard]] bool isComplete() const { return rest_ == nullptr; }
  /// The reply of a complete delivery.
  [[nodiscard]] Reply reply() const { return reply_; }
  /// The disk that the rest of an incomplete delivery may wait for.
  [[nodiscard]] Disk disk() const { return disk_; }
  /// Takes the rest of an incomplete delivery.
  [[nodiscard]] Rest takeRest() { return std::move(rest_); }

 private:
  Reply reply_;
  Disk disk_ = Disk::log;
  Rest rest_;
};

}  // namespace sorvane
