#include "registry/PortDescriptor.h"

#include <cmath>
#include <cstring>

#include "platform/TimeSource.h"

namespace sorvane {
namespace {

constexpr std::uint32_t kMostTimesOnWatchList = 0x7fffffffU;

}  // namespace

PortDescriptor::Registration PortDescriptor::registration() const {
  return {portKey(), portName(), portHostAddress(), portHost(), portNumber(), portType()};
}

PortDescriptor::PortBlock::Texts PortDescriptor::textsOf(const Registration& registration) {
  return {registration.portNumber, registration.portName, registration.portHost,
          registration.portType,   registration.portKey,  registration.portHostAddress};
}

std::size_t PortDescriptor::registrationBytes(std::size_t blockBytes) {
  constexpr std::size_t kControlBlock = 2 * sizeof(void*);
  constexpr std::size_t kRecordAndInfo =
      heapBytes(kControlBlock + sizeof(PortDescriptor)) + heapBytes(sizeof(Info));
  return blockBytes == 0 ? 0 : heapBytes(blockBytes) + kRecordAndInfo;
}

std::optional<std::string_view> PortDescriptor::alertStatus() {
  const auto alert = alertAsSet();
  if (alert && timeIntervalSinceReferenceDate() > alertStatusTimestamp() + kAlertLifetime) {
    dropAlert();
    return std::nullopt;
  }
  return alert;
}

double PortDescriptor::alertStatusTimestamp() const {
  double time = 0.0;
  if (const auto bytes = state_.text(kAlertTime)) {
    std::memcpy(&time, bytes->data(), sizeof time);
  }
  return time;
}

PortDescriptor::StateBlock::Texts PortDescriptor::withAlert(std::optional<std::string_view> text,
                                                            const double& time) const {
  StateBlock::Texts texts = state_.texts();
  texts[kAlert] = text;
  texts[kAlertTime] = std::string_view(reinterpret_cast<const char*>(&time), sizeof time);
  return texts;
}

void PortDescriptor::setAlertStatus(std::optional<std::string_view> text) {
  setAlertStatus(text, timeIntervalSinceReferenceDate());
}

void PortDescriptor::setAlertStatus(std::optional<std::string_view> text, double time) {
  state_.setAll(withAlert(text, time));
}

std::size_t PortDescriptor::stateBytesWithAlert(std::string_view text) const {
  const double anyTime = 0.0;
  return heapBytes(StateBlock::bytesWith(withAlert(text, anyTime)));
}

std::size_t PortDescriptor::stateBytesWithStatus(std::string_view text) const {
  StateBlock::Texts texts = state_.texts();
  texts[kStatus] = text;
  return heapBytes(StateBlock::bytesWith(texts));
}

void PortDescriptor::createInfo() {
  if (info_ == nullptr) {
    info_ = std::make_unique<Info>();
  }
}

bool PortDescriptor::isDirty() const {
  return dirty_ != 0 || (timesSetDirty_ != nullptr &&
                         timesSetDirty_->load(std::memory_order_acquire) != clearedAt_);
}

void PortDescriptor::setDirty(bool dirty) {
  dirty_ = dirty ? 1 : 0;
  if (timesSetDirty_ != nullptr) {
    clearedAt_ = timesSetDirty_->load(std::memory_order_acquire);
  }
}

bool PortDescriptor::takeDirty() {
  const std::uint64_t times =
      timesSetDirty_ == nullptr ? clearedAt_ : timesSetDirty_->load(std::memory_order_acquire);
  const bool wasDirty = dirty_ != 0 || times != clearedAt_;
  dirty_ = 0;
  clearedAt_ = times;
  return wasDirty;
}

bool PortDescriptor::joinWatchList(const std::atomic<std::uint64_t>& timesSetDirty) {
  if (timesSetDirty_ == nullptr) {
    timesSetDirty_ = &timesSetDirty;
    clearedAt_ = timesSetDirty.load(std::memory_order_acquire);
  }
  if (timesOnWatchList_ == kMostTimesOnWatchList) {
    return false;
  }
  ++timesOnWatchList_;
  return true;
}

std::uint32_t PortDescriptor::leaveWatchList() {
  const std::uint32_t times = timesOnWatchList_;
  dirty_ = isDirty() ? 1 : 0;
  timesSetDirty_ = nullptr;
  timesOnWatchList_ = 0;
  return times;
}

void PortDescriptor::keep(KeptWriter& writer, KeptPart part) const {
  [[maybe_unused]] const auto& [port, state, info, timesSetDirty, clearedAt, timesOnWatchList,
                                isDirty, held] = *this;
  [[maybe_unused]] const auto& [nameBytes, entries, isCounted, hasLeft, anchor] = held;
  const auto& [number, name, host, type, key, address] = port.texts();
  for (const auto& text : {number, name, host, type, key, address}) {
    writer.optionalText(text);
  }
  const auto& [status, alert, alertTime] = state.texts();
  writer.optionalText(status);
  writer.flag(alertTime.has_value());
  if (alertTime) {
    writer.real(alertStatusTimestamp());
    writer.optionalText(alert);
  }
  if (part == KeptPart::inJournal) {
    keepNoWatching(writer);
    return;
  }
  writer.flag(info != nullptr);
  if (info != nullptr) {
    writer.number(info->size());
    for (const auto& [word, value] : *info) {
      writer.text(word);
      writer.text(value);
    }
  }
  writer.number(clearedAt);
  writer.number(timesOnWatchList);
  writer.flag(isDirty != 0);
}

void PortDescriptor::keepNoWatching(KeptWriter& writer) {
  const Watching none;
  writer.flag(false);  // no info dictionary
  writer.number(none.clearedAt);
  writer.number(none.times);
  writer.flag(none.isDirty);
}

void PortDescriptor::restoreWatching(const Watching& watching,
                                     const std::atomic<std::uint64_t>& timesSetDirty) {
  if (watching.times > kMostTimesOnWatchList) {
    throw KeptFault("what was kept has a record that is on the watch list too often");
  }
  clearedAt_ = watching.clearedAt;
  timesOnWatchList_ = watching.times;
  dirty_ = watching.isDirty ? 1 : 0;
  timesSetDirty_ = watching.times > 0 ? &timesSetDirty : nullptr;
}

void PortDescriptor::restore(KeptReader& reader, const Watched& list) {
  [[maybe_unused]] auto& [port, state, info, timesSetDirty, clearedAt, timesOnWatchList, isDirty,
                          held] = *this;
  restoreTexts(reader);
  if (reader.flag()) {
    createInfo();
    for (std::size_t left = reader.count(2); left > 0; --left) {
      const std::string_view word = reader.text();
      if (!info->empty() && info->rbegin()->first >= word) {
        throw KeptFault("what was kept has notes in another order");
      }
      info->emplace_hint(info->end(), word, reader.text());
    }
  }
  clearedAt = reader.number(list.times);
  timesOnWatchList = static_cast<std::uint32_t>(reader.number(kMostTimesOnWatchList));
  timesSetDirty = timesOnWatchList > 0 ? &list.timesSetDirty : nullptr;
  isDirty = reader.flag() ? 1 : 0;
}

void PortDescriptor::restoreTexts(KeptReader& reader) {
  PortBlock::Texts texts;
  auto& [number, name, host, type, key, address] = texts;
  for (auto* const text : {&number, &name, &host, &type, &key, &address}) {
    *text = reader.optionalText();
  }
  port_ = PortBlock(texts);
  const auto status = reader.optionalText();
  if (!reader.flag()) {
    state_ = StateBlock({status, std::nullopt, std::nullopt});
    return;
  }
  const double time = reader.real();
  if (!std::isfinite(time)) {
    throw KeptFault("what was kept has an alert at no time");
  }
  StateBlock::Texts states = withAlert(reader.optionalText(), time);
  states[kStatus] = status;
  state_ = StateBlock(states);
}

}  // namespace sorvane
