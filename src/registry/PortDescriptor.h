// The record of one connected peer: a database server, a launcher, a tool or a client.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <map>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "registry/TextBlock.h"

namespace sorvane {

/// Each live connection has one as its context object. The record is registered while the port map
/// holds it. Connection and map share it, so make it with `std::make_shared`.
///
/// A text getter returns nothing for nil. Its view is valid until a setter of the same group (the
/// registration; state and alert) is called. A setter may be given such a view.
///
/// Threads: only commands of the record's own connection change the registration, the info
/// dictionary and the dirty flag, with `serverLock` held. The end of that connection can therefore
/// read them without a lock. Commands of any connection read and change state and alert, with
/// `serverLock` held. The end of a connection never does, so the two groups share no memory.
class PortDescriptor {
 public:
  /// How long an alert lives after it was last set, seconds.
  static constexpr double kAlertLifetime = 3600.0;

  /// All that a peer registers. An empty optional is nil.
  struct Registration {
    std::optional<std::string_view> portKey;  ///< NAME@HOST
    std::optional<std::string_view> portName;
    std::optional<std::string_view> portHostAddress;
    std::optional<std::string_view> portHost;
    std::optional<std::string_view> portNumber;  ///< decimal text
    std::optional<std::string_view> portType;
  };

  using Info = std::map<std::string, std::string, std::less<>>;

  /// All texts are nil, there is no info dictionary, the time stamp is 0, and the record is dirty.
  PortDescriptor() = default;
  PortDescriptor(const PortDescriptor&) = delete;
  PortDescriptor& operator=(const PortDescriptor&) = delete;

  // ---- Registration

  [[nodiscard]] std::optional<std::string_view> portKey() const { return port_.text(kKey); }
  [[nodiscard]] std::optional<std::string_view> portName() const { return port_.text(kName); }
  [[nodiscard]] std::optional<std::string_view> portHostAddress() const {
    return port_.text(kAddress);
  }
  [[nodiscard]] std::optional<std::string_view> portHost() const { return port_.text(kHost); }
  [[nodiscard]] std::optional<std::string_view> portNumber() const { return port_.text(kNumber); }
  [[nodiscard]] std::optional<std::string_view> portType() const { return port_.text(kType); }
  [[nodiscard]] Registration registration() const;

  /// portNumber and portName in wire form, ready to copy into a reply; fields that are nil are left
  /// out.
  [[nodiscard]] std::string_view numberAndNameEntries() const {
    return port_.entries(kNumber, kName);
  }
  /// portHost and portType, likewise.
  [[nodiscard]] std::string_view hostAndTypeEntries() const { return port_.entries(kHost, kType); }

  /// Replaces the whole registration with one allocation. Every setter of a text raises NSException
  /// and changes nothing when the texts of its group are longer than 2 GiB together.
  void setRegistration(const Registration& registration);
  void setPortKey(std::optional<std::string_view> text) { port_.set(kKey, text); }
  void setPortName(std::optional<std::string_view> text) { port_.set(kName, text); }
  void setPortHostAddress(std::optional<std::string_view> text) { port_.set(kAddress, text); }
  void setPortHost(std::optional<std::string_view> text) { port_.set(kHost, text); }
  void setPortNumber(std::optional<std::string_view> text) { port_.set(kNumber, text); }
  void setPortType(std::optional<std::string_view> text) { port_.set(kType, text); }

  // ---- State and alert

  /// The state of the database; nil means running.
  [[nodiscard]] std::optional<std::string_view> portStatus() const { return state_.text(kStatus); }
  void setPortStatus(std::optional<std::string_view> text) { state_.set(kStatus, text); }

  /// Returns the alert while it is fresh. Reading changes the record: the first read later than an
  /// hour after the alert was set drops it.
  [[nodiscard]] std::optional<std::string_view> alertStatus();
  /// Sets the alert and starts its hour again, even when the text is the same.
  void setAlertStatus(std::optional<std::string_view> text);
  /// When the alert was last set, seconds since the reference date; 0 before.
  [[nodiscard]] double alertStatusTimestamp() const { return alertStatusTimestamp_; }

  // ---- Info dictionary: the info server's notes about this connection

  /// Makes an empty dictionary unless there is one.
  void createInfo();
  /// Returns the dictionary, which lives as long as the record; null before `createInfo`.
  [[nodiscard]] Info* info() const { return info_.get(); }

  // ---- Dirty flag: whether ports changed since this peer last asked

  /// True for a new record, after `setDirty(true)`, and when the watch list that the record is on
  /// was set dirty since this flag was last cleared.
  [[nodiscard]] bool isDirty() const;
  void setDirty(bool dirty);
  /// Returns the flag and clears it in one step: a change at the same time is told by this call or
  /// by the next one.
  [[nodiscard]] bool takeDirty();

  /// Puts the record on a watch list once more. `timesSetDirty` counts how often that list was set
  /// dirty; it must live for as long as the record is on the list. A record is on one list at most.
  void joinWatchList(const std::atomic<std::uint64_t>& timesSetDirty);
  /// Takes the record off its list. Returns how often it was on it. The flag stays as it is.
  std::uint32_t leaveWatchList();
  [[nodiscard]] std::uint32_t timesOnWatchList() const { return timesOnWatchList_; }

  /// Has the processor fetch the texts, which are about to be read.
  void prefetchTexts() const {
    port_.prefetch();
    state_.prefetch();
  }

  /// Does nothing.
  void invalidate() {}

 private:
  enum PortText : std::uint8_t { kNumber, kName, kHost, kType, kKey, kAddress };
  static constexpr std::array<std::string_view, 6> kPortTexts = {
      "portNumber", "portName", "portHost", "portType", "", ""};
  enum StateText : std::uint8_t { kStatus, kAlert };
  static constexpr std::array<std::string_view, 2> kStateTexts = {"", ""};

  TextBlock<kPortTexts> port_;
  TextBlock<kStateTexts> state_;
  double alertStatusTimestamp_ = 0.0;
  std::unique_ptr<Info> info_;
  // Setting all records of a list dirty costs one addition: the list counts how often that was
  // done, and a record remembers the count at which its flag was last cleared.
  const std::atomic<std::uint64_t>* timesSetDirty_ = nullptr;  // null while on no list
  std::uint64_t clearedAt_ = 0;
  std::uint32_t timesOnWatchList_ = 0;
  bool dirty_ = true;
};

static_assert(sizeof(PortDescriptor) <= 56,
              "a record is small: a hundred thousand of them are held");

}  // namespace sorvane
