#include "client/Texts.h"
#include "client/WatchWorker.h"
#include "sorvane/client.h"

namespace sorvane::client {

Result<Watch> Watch::start(const NameServer& server, Options options) {
  if (auto checked = detail::checkServer(server); !checked) {
    return checked.error();
  }
  if (!options.onChange) {
    return Error{ErrorCode::invalidArgument, "nobody is to be told of a change"};
  }
  const auto worker = std::make_shared<detail::WatchWorker>(server, std::move(options));
  if (auto started = detail::Worker::start(worker); !started) {
    return started.error();
  }
  return Watch(worker);
}

Watch::Watch(std::shared_ptr<detail::WatchWorker> worker) : worker_(std::move(worker)) {}

Watch::~Watch() {
  if (worker_) {
    worker_->stop();
  }
}

Watch::Watch(Watch&& other) noexcept = default;

Watch& Watch::operator=(Watch&& other) noexcept {
  Watch former(std::exchange(worker_, std::move(other.worker_)));
  return *this;
}

Watch::Status Watch::status() const { return worker_->status(); }

}  // namespace sorvane::client
