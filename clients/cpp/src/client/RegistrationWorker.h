// What a Registration does.
#pragma once

#include <chrono>
#include <condition_variable>
#include <mutex>
#include <optional>
#include <string>

#include "client/Worker.h"
#include "client/net/Connection.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

class RegistrationWorker final : public Worker {
 public:
  RegistrationWorker(const NameServer& server, Registration::Options options);

  /// To be called before `start`. False when the process has no descriptor left.
  [[nodiscard]] bool open() { return news_.open(); }

  // Any thread.
  [[nodiscard]] Registration::Status status() const;
  [[nodiscard]] Result<int> waitUntilRegistered(std::chrono::milliseconds limit) const;
  void keepState(std::string_view state);
  void keepAlert(std::string_view text);

 private:
  using Status = Registration::Status;
  using Kind = Registration::Status::Kind;

  /// A text that the name server is to have.
  struct Kept {
    std::optional<std::string> text;
    bool isDue = false;  // it has not been sent on this connection
  };

  void run() override;
  void wakeToStop() override { news_.wake(); }

  // Each returns the error that ends the attempt or the connection.
  Error hold();
  Result<void> enter();
  Result<void> enterWithNewNumber();
  Result<void> enterWithNumber();
  Result<void> check();
  Result<void> bringNews();
  Result<void> bring(Kept RegistrationWorker::*kept,
                     Request (*request)(std::string_view, std::string_view));

  void keep(Kept& kept, std::string_view text);
  void makeKeptDue();
  void tell(Kind kind, const std::string& reason);
  [[nodiscard]] std::chrono::milliseconds longestCheckPause() const;

  const NameServer server_;
  const Registration::Options options_;
  WakePipe news_;

  // Of the thread.
  Connection connection_;
  int number_;                              // 0 until one is ours
  std::chrono::milliseconds checkPause_{};  // until the next check; set by each registering

  mutable std::mutex mutex_;
  mutable std::condition_variable changed_;
  // Guarded by mutex_.
  Status status_;
  Kept state_;
  Kept alert_;
  Clock::time_point alertTime_;
};

}  // namespace sorvane::client::detail
