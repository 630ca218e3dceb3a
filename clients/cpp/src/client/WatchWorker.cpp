#include "client/WatchWorker.h"

#include <algorithm>
#include <utility>

namespace sorvane::client::detail {
namespace {

// A name server that hangs is noticed when this and the limit for a reply are over.
constexpr std::chrono::seconds kHeldFor{20};
// Changes that come closer together are told as one, and a name server that holds nothing is not
// flooded.
constexpr std::chrono::milliseconds kBetweenQuestions{10};

}  // namespace

WatchWorker::WatchWorker(const NameServer& server, Watch::Options options)
    : options_(std::move(options)),
      pollEvery_(std::max(options_.pollEvery, std::chrono::milliseconds(10))),
      asking_(server, stopDescriptor()),
      waiting_(server, stopDescriptor()),
      picture_([this](const Change& change) {
        if (!isStopping()) {
          options_.onChange(change);
        }
      }) {
  status_.reason = "the watch has just begun";
}

Watch::Status WatchWorker::status() const {
  const std::lock_guard<std::mutex> hold(mutex_);
  return status_;
}

void WatchWorker::tell(bool current, const std::string& reason) {
  const Watch::Status status{current, reason};
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    if (status_ == status) {
      return;
    }
    status_ = status;
  }
  if (options_.onStatus && !isStopping()) {
    options_.onStatus(status);
  }
}

void WatchWorker::run() {
  while (!isStopping()) {
    const auto end = follow();
    asking_.close();
    waiting_.close();
    if (!isStopping()) {
      tell(false, end.error().reason);
      pauseBeforeRetry();
    }
  }
}

Result<void> WatchWorker::follow() {
  mustPoll_ = false;
  auto opened = asking_.open();
  if (opened) {
    opened = waiting_.open();
  }
  // What changes between the first wait, which is a short one, and the reply is told by the next.
  while (opened) {
    auto changed = waitForChange();
    if (!changed) {
      return changed;
    }
    const auto next = after(betweenQuestions());
    if (auto brought = refresh(); !brought) {
      return brought;
    }
    pauseUntil(next);
  }
  return opened;
}

Result<void> WatchWorker::refresh() {
  auto brought = changes_.bring(picture_, asking_);
  if (brought) {
    tell(true, "");
  }
  return brought;
}

/// Returns when something has changed. The first question of a connection has that reply at once.
Result<void> WatchWorker::waitForChange() {
  while (!isStopping()) {
    const auto reply = mustPoll_
                           ? waiting_.ask(Request::action("didPortsChange"))
                           : waiting_.ask(Request::action("awaitPortChanges")
                                              .with("timeout", std::to_string(kHeldFor.count())),
                                          kHeldFor);
    if (!reply) {
      return reply.error();
    }
    const auto result = reply->text("result");
    if (result == "YES" || (mustPoll_ && result != "NO")) {
      return {};
    }
    if (result == "NO") {
      pauseUntil(after(betweenQuestions()));
    }
    mustPoll_ = mustPoll_ || result != "NO";
  }
  return Error{ErrorCode::closed, "the watch ends"};
}

std::chrono::milliseconds WatchWorker::betweenQuestions() const {
  return mustPoll_ ? pollEvery_ : kBetweenQuestions;
}

}  // namespace sorvane::client::detail
