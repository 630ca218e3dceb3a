#include "registry/PortDescriptor.h"

#include "platform/TimeSource.h"

namespace sorvane {

PortDescriptor::Registration PortDescriptor::registration() const {
  return {portKey(), portName(), portHostAddress(), portHost(), portNumber(), portType()};
}

void PortDescriptor::setRegistration(const Registration& registration) {
  port_.setAll({registration.portNumber, registration.portName, registration.portHost,
                registration.portType, registration.portKey, registration.portHostAddress});
}

std::optional<std::string_view> PortDescriptor::alertStatus() {
  const auto alert = state_.text(kAlert);
  if (alert && timeIntervalSinceReferenceDate() > alertStatusTimestamp_ + kAlertLifetime) {
    state_.set(kAlert, std::nullopt);
    return std::nullopt;
  }
  return alert;
}

void PortDescriptor::setAlertStatus(std::optional<std::string_view> text) {
  state_.set(kAlert, text);
  alertStatusTimestamp_ = timeIntervalSinceReferenceDate();
}

void PortDescriptor::createInfo() {
  if (info_ == nullptr) {
    info_ = std::make_unique<Info>();
  }
}

bool PortDescriptor::isDirty() const {
  return dirty_ || (timesSetDirty_ != nullptr &&
                    timesSetDirty_->load(std::memory_order_acquire) != clearedAt_);
}

void PortDescriptor::setDirty(bool dirty) {
  dirty_ = dirty;
  if (timesSetDirty_ != nullptr) {
    clearedAt_ = timesSetDirty_->load(std::memory_order_acquire);
  }
}

bool PortDescriptor::takeDirty() {
  const std::uint64_t times =
      timesSetDirty_ == nullptr ? clearedAt_ : timesSetDirty_->load(std::memory_order_acquire);
  const bool wasDirty = dirty_ || times != clearedAt_;
  dirty_ = false;
  clearedAt_ = times;
  return wasDirty;
}

void PortDescriptor::joinWatchList(const std::atomic<std::uint64_t>& timesSetDirty) {
  if (timesSetDirty_ == nullptr) {
    timesSetDirty_ = &timesSetDirty;
    clearedAt_ = timesSetDirty.load(std::memory_order_acquire);
  }
  ++timesOnWatchList_;
}

std::uint32_t PortDescriptor::leaveWatchList() {
  const std::uint32_t times = timesOnWatchList_;
  dirty_ = isDirty();
  timesSetDirty_ = nullptr;
  timesOnWatchList_ = 0;
  return times;
}

}  // namespace sorvane
