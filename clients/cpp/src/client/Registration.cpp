#include "client/RegistrationWorker.h"
#include "client/Texts.h"
#include "sorvane/client.h"

namespace sorvane::client {

Result<Registration> Registration::start(const NameServer& server, Options options) {
  if (auto checked = detail::checkServer(server); !checked) {
    return checked.error();
  }
  if (auto checked = detail::checkName(options.name); !checked) {
    return checked.error();
  }
  for (const std::string* text : {&options.type, &options.host, &options.address}) {
    if (auto checked = detail::checkText(*text); !checked) {
      return checked.error();
    }
  }
  if (options.number < 0 || options.number > 65535) {
    return Error{ErrorCode::invalidArgument, "the number is that of no port"};
  }
  if (options.host.empty()) {
    options.host = detail::nameOfThisHost();
  }
  const auto worker = std::make_shared<detail::RegistrationWorker>(server, std::move(options));
  if (!worker->open()) {
    return Error{ErrorCode::system, "no descriptor is left"};
  }
  if (auto started = detail::Worker::start(worker); !started) {
    return started.error();
  }
  return Registration(worker);
}

Registration::Registration(std::shared_ptr<detail::RegistrationWorker> worker)
    : worker_(std::move(worker)) {}

Registration::~Registration() {
  if (worker_) {
    worker_->stop();
  }
}

Registration::Registration(Registration&& other) noexcept = default;

Registration& Registration::operator=(Registration&& other) noexcept {
  Registration former(std::exchange(worker_, std::move(other.worker_)));
  return *this;
}

Registration::Status Registration::status() const { return worker_->status(); }

Result<int> Registration::waitUntilRegistered(std::chrono::milliseconds limit) const {
  return worker_->waitUntilRegistered(limit);
}

Result<void> Registration::setState(std::string_view state) {
  auto checked = detail::checkText(state);
  if (checked) {
    worker_->keepState(state);
  }
  return checked;
}

Result<void> Registration::setAlert(std::string_view text) {
  auto checked = detail::checkText(text);
  if (checked) {
    worker_->keepAlert(text);
  }
  return checked;
}

}  // namespace sorvane::client
