// Deadlines that all lie the same time ahead, so that the first that came is the first that is due.
#pragma once

#include <chrono>
#include <list>

namespace sorvane {

class ServerConnection;

/// Belongs to one serving thread. Adding, removing and finding the next one cost the same however
/// many there are.
class DeadlineQueue {
 public:
  using Clock = std::chrono::steady_clock;
  struct Entry {
    Clock::time_point due;
    ServerConnection* connection;
  };
  using Ticket = std::list<Entry>::iterator;

  explicit DeadlineQueue(std::chrono::milliseconds ahead) : ahead_(ahead) {}

  [[nodiscard]] Ticket add(ServerConnection& connection) {
    return entries_.insert(entries_.end(), {Clock::now() + ahead_, &connection});
  }
  void remove(Ticket ticket) { entries_.erase(ticket); }

  [[nodiscard]] bool empty() const { return entries_.empty(); }
  /// Only when not empty.
  [[nodiscard]] const Entry& next() const { return entries_.front(); }

 private:
  const std::chrono::milliseconds ahead_;
  std::list<Entry> entries_;
};

}  // namespace sorvane
