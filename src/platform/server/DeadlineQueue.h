// Deadlines that all lie the same time ahead, so that the one added first is due first.
#pragma once

#include <algorithm>
#include <chrono>
#include <list>

namespace sorvane {

class ServerConnection;

/// Belongs to one serving thread. Adding a deadline, removing one and finding the next one take the
/// same time however many there are.
class DeadlineQueue {
 public:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    Clock::time_point due;
    ServerConnection* connection;
  };
  using Ticket = std::list<Entry>::iterator;

  explicit DeadlineQueue(std::chrono::milliseconds ahead) : ahead_(ahead) {}

  /// Adds a deadline for the connection, `ahead` from now. The ticket is valid until it is removed.
  [[nodiscard]] Ticket add(ServerConnection& connection) {
    return entries_.insert(entries_.end(), {Clock::now() + ahead_, &connection});
  }
  /// Adds one that has `left`, but not beyond `ahead`. It must not be due before those that are
  /// there.
  [[nodiscard]] Ticket add(ServerConnection& connection, std::chrono::milliseconds left) {
    return entries_.insert(entries_.end(), {Clock::now() + std::min(left, ahead_), &connection});
  }
  void remove(Ticket ticket) { entries_.erase(ticket); }
  /// Puts a deadline off to `ahead` from now. Its ticket stays valid.
  void restart(Ticket ticket) {
    ticket->due = Clock::now() + ahead_;
    entries_.splice(entries_.end(), entries_, ticket);
  }

  [[nodiscard]] bool empty() const { return entries_.empty(); }
  /// The deadline that is due first. There must be one.
  [[nodiscard]] const Entry& next() const { return entries_.front(); }

 private:
  const std::chrono::milliseconds ahead_;
  std::list<Entry> entries_;
};

}  // namespace sorvane
