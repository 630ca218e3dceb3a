// What a Watch does.
#pragma once

#include <mutex>
#include <string>

#include "client/Changes.h"
#include "client/Picture.h"
#include "client/Worker.h"
#include "client/net/Connection.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

class WatchWorker final : public Worker {
 public:
  WatchWorker(const NameServer& server, Watch::Options options);

  /// Any thread.
  [[nodiscard]] Watch::Status status() const;

 private:
  void run() override;

  // Each returns the error that ends the connections.
  Result<void> follow();
  Result<void> refresh();
  Result<void> waitForChange();
  [[nodiscard]] std::chrono::milliseconds betweenQuestions() const;

  void tell(bool current, const std::string& reason);

  const Watch::Options options_;
  const std::chrono::milliseconds pollEvery_;

  // Of the thread.
  Connection asking_;
  Connection waiting_;  // its requests are held by the name server
  Changes changes_;
  Picture picture_;
  bool mustPoll_ = false;  // this name server holds no request

  mutable std::mutex mutex_;
  Watch::Status status_;  // guarded by mutex_
};

}  // namespace sorvane::client::detail
