#include "client/RegistrationWorker.h"

#include <algorithm>
#include <utility>

#include "client/Changes.h"
#include "client/Page.h"
#include "client/Texts.h"

namespace sorvane::client::detail {
namespace {

constexpr int kMostNumbers = 100;
constexpr std::chrono::hours kAlertLifetime{1};
constexpr std::chrono::seconds kFirstCheck{1};

Error refusal(const std::string& reason) { return {ErrorCode::refused, reason}; }

}  // namespace

RegistrationWorker::RegistrationWorker(const NameServer& server, Registration::Options options)
    : server_(server),
      options_(std::move(options)),
      connection_(server, stopDescriptor()),
      number_(options_.number) {
  status_.number = number_;
  status_.reason = "the registration has just begun";
}

Registration::Status RegistrationWorker::status() const {
  const std::lock_guard<std::mutex> hold(mutex_);
  return status_;
}

Result<int> RegistrationWorker::waitUntilRegistered(std::chrono::milliseconds limit) const {
  const auto deadline = isOwnThread() ? Clock::now() : after(limit);
  std::unique_lock<std::mutex> hold(mutex_);
  if (!changed_.wait_until(hold, deadline, [&] { return status_.kind == Kind::registered; })) {
    return Error{status_.kind == Kind::away ? ErrorCode::timedOut : ErrorCode::refused,
                 status_.reason};
  }
  return status_.number;
}

void RegistrationWorker::keepState(std::string_view state) { keep(state_, state); }
void RegistrationWorker::keepAlert(std::string_view text) { keep(alert_, text); }

void RegistrationWorker::keep(Kept& kept, std::string_view text) {
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    kept.text = text;
    kept.isDue = true;
    if (&kept == &alert_) {
      alertTime_ = Clock::now();
    }
  }
  news_.wake();
}

void RegistrationWorker::makeKeptDue() {
  const std::lock_guard<std::mutex> hold(mutex_);
  if (alert_.text && Clock::now() - alertTime_ >= kAlertLifetime) {
    alert_.text.reset();
  }
  state_.isDue = state_.text.has_value();
  alert_.isDue = alert_.text.has_value();
}

void RegistrationWorker::tell(Kind kind, const std::string& reason) {
  const Status status{kind, number_, reason};
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    if (status_ == status) {
      return;
    }
    status_ = status;
    changed_.notify_all();
  }
  if (options_.onStatus && !isStopping()) {
    options_.onStatus(status);
  }
}

void RegistrationWorker::run() {
  while (!isStopping()) {
    const Error end = hold();
    connection_.close();
    if (!isStopping()) {
      tell(end.code == ErrorCode::refused ? Kind::refused : Kind::away, end.reason);
      pauseBeforeRetry();
    }
  }
}

Error RegistrationWorker::hold() {
  auto held = connection_.open();
  if (held) {
    held = enter();
  }
  auto nextCheck = after(checkPause_);
  while (held) {
    switch (waitForReading(connection_.descriptor(), Limit{nextCheck, news_.descriptor()})) {
      case Woken::wake:
        news_.rest();
        if (isStopping()) {
          return {};
        }
        held = bringNews();
        break;
      case Woken::deadline:
        break;  // below, for news may come at any time, too
      case Woken::ready:
        if (!connection_.isQuiet()) {
          held = Error{ErrorCode::closed,
                       connection_.place() + ": the name server has ended the connection"};
        }
        break;
    }
    if (held && Clock::now() >= nextCheck) {
      checkPause_ = std::min(2 * checkPause_, longestCheckPause());
      held = check();
      nextCheck = after(checkPause_);
    }
  }
  return held.error();
}

std::chrono::milliseconds RegistrationWorker::longestCheckPause() const {
  return std::max(options_.checkEvery, std::chrono::milliseconds(10));
}

Result<void> RegistrationWorker::enter() {
  // Connections that were given up before may end soon, and take the name with them.
  checkPause_ = std::min<std::chrono::milliseconds>(kFirstCheck, longestCheckPause());
  auto entered = number_ == 0 ? enterWithNewNumber() : enterWithNumber();
  if (entered) {
    makeKeptDue();
    entered = bringNews();
  }
  if (entered) {
    tell(Kind::registered, "");
  }
  return entered;
}

Result<void> RegistrationWorker::enterWithNewNumber() {
  Request request = Request()
                        .with("newPort", "")
                        .with("portName", options_.name)
                        .with("portHost", options_.host)
                        .with("portType", options_.type);
  if (!options_.address.empty()) {
    request.with("portHostAddress", options_.address);
  }
  int number = 0;
  for (int count = 0; number == 0; ++count) {
    if (count == kMostNumbers) {
      return refusal("no number was found on which the database can listen");
    }
    const auto reply = connection_.ask(request);
    if (!reply) {
      return reply.error();
    }
    number = readPort(reply->text("portNumber").value_or(""));
    if (number == 0) {
      return refusal("the name server gives out no number");
    }
    if (isStopping() || (options_.listen && !options_.listen(number))) {
      number = 0;
    }
    if (isStopping()) {
      return refusal("the registration ends");
    }
  }
  if (options_.listen) {
    number_ = number;
  }
  const auto reply = connection_.ask(Request().with("acceptPort", ""));
  if (!reply) {
    return reply.error();
  }
  if (!reply->isDictionary()) {
    return refusal("the name server does not accept the registration");
  }
  number_ = number;
  return {};
}

Result<void> RegistrationWorker::enterWithNumber() {
  Request request = Request()
                        .with("reconnectPort", options_.name)
                        .with("portNumber", std::to_string(number_))
                        .with("portHost", options_.host)
                        .with("portType", options_.type);
  if (!options_.address.empty()) {
    request.with("portHostAddress", options_.address);
  }
  const auto reply = connection_.ask(request);
  if (!reply) {
    return reply.error();
  }
  if (!reply->text("reconnectPort")) {
    return refusal("the name server does not accept the registration");
  }
  return {};
}

Result<void> RegistrationWorker::check() {
  const auto reply = connection_.ask(findRequest(connection_, options_.name));
  if (!reply) {
    return reply.error();
  }
  const auto found = readFound(*reply, options_.name);
  if (found && (found->number != number_ || found->host != options_.host)) {
    tell(Kind::taken, "another connection has registered the name, for " + found->host + " port " +
                          std::to_string(found->number));
    return {};
  }
  if (found) {
    tell(Kind::registered, "");
    return {};
  }
  // One that serves its own machine only tells nobody else what it has.
  const bool isGone = found.error().code == ErrorCode::notFound;
  return isGone ? enter() : Result<void>();
}

Result<void> RegistrationWorker::bringNews() {
  const auto brought = bring(&RegistrationWorker::state_, stateRequest);
  return brought ? bring(&RegistrationWorker::alert_, alertRequest) : brought;
}

Result<void> RegistrationWorker::bring(Kept RegistrationWorker::*kept,
                                       Request (*request)(std::string_view, std::string_view)) {
  std::string text;
  {
    const std::lock_guard<std::mutex> hold(mutex_);
    if (!(this->*kept).isDue) {
      return {};
    }
    (this->*kept).isDue = false;
    text = *(this->*kept).text;
  }
  const auto reply = connection_.ask(request(options_.name, text));
  if (!reply) {
    return reply.error();
  }
  if (reply->text("result") != "success" && options_.onError && !isStopping()) {
    options_.onError(
        refusal("the name server has not taken \"" + text + "\" for " + options_.name));
  }
  return {};
}

}  // namespace sorvane::client::detail
