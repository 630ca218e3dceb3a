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

/// One for each live connection, as its context object; registered while the port map holds it.
/// Connection and map share it, so make it with `std::make_shared`.
///
/// A text getter answers nothing for nil. Its view is valid until a setter of the same group (the
/// registration; state and alert) is called; a setter may be given such a view.
///
/// Threads. The registration, the info dictionary and the watch mark are changed by commands of the
/// record's own connection alone, with `serverLock` held, so that the end of that connection reads
/// them without a lock. State and alert are read and changed by commands of any connection, with
/// `serverLock` held, and never by the end of a connection: the two groups share no memory.
class PortDescriptor {
 public:
  /// Seconds for which an alert lives after it was last set.
  static constexpr double kAlertLifetime = 3600.0;

  /// What a peer registers, all at once. Nothing stands for nil.
  struct Registration {
    std::optional<std::string_view> portKey;  ///< NAME@HOST
    std::optional<std::string_view> portName;
    std::optional<std::string_view> portHostAddress;
    std::optional<std::string_view> portHost;
    std::optional<std::string_view> portNumber;  ///< decimal text
    std::optional<std::string_view> portType;
  };

  using Info = std::map<std::string, std::string, std::less<>>;

  /// All texts nil, no info dictionary, the time stamp 0, and dirty.
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

  /// The registration, but for the address, as the entries of a reply, which it is kept as: number
  /// and name, those that are not nil.
  [[nodiscard]] std::string_view numberAndNameEntries() const {
    return port_.entries(kNumber, kName);
  }
  /// Host and type, likewise.
  [[nodiscard]] std::string_view hostAndTypeEntries() const { return port_.entries(kHost, kType); }

  /// Replaces the whole registration with one allocation. All setters of texts raise NSException,
  /// and change nothing, when the texts are longer than 2 GiB together.
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

  /// The alert while it is fresh. The first read later than an hour after it was set drops it:
  /// reading changes the record.
  [[nodiscard]] std::optional<std::string_view> alertStatus();
  /// Sets the alert and begins its hour anew, also when the text is the same.
  void setAlertStatus(std::optional<std::string_view> text);
  /// When the alert was last set, seconds since the reference date; 0 before.
  [[nodiscard]] double alertStatusTimestamp() const { return alertStatusTimestamp_; }

  // ---- Info dictionary, a scratch of the info server for this connection

  /// Makes the dictionary, empty, unless it is there.
  void createInfo();
  /// The dictionary, which lives as long as the record; null before `createInfo`.
  [[nodiscard]] Info* info() const { return info_.get(); }

  // ---- Watch mark: whether ports changed since this peer last asked

  /// True for a fresh record, after `setDirty(true)`, and when the watch list that the record is on
  /// was marked since the record was last cleared.
  [[nodiscard]] bool isDirty() const;
  void setDirty(bool dirty);
  /// Reads the mark and clears it as one step, so that a marking at the same time is told by this
  /// call or by the next one.
  [[nodiscard]] bool takeDirty();

  /// Puts the record on a watch list once more. `markings` counts how often that list was marked,
  /// and outlives the record's stay on it; a record is on one list at most.
  void joinWatchList(const std::atomic<std::uint64_t>& markings);
  /// Takes the record off; answers how often it was on the list. The mark stays as it is.
  std::uint32_t leaveWatchList();
  [[nodiscard]] std::uint32_t timesOnWatchList() const { return timesOnWatchList_; }

  /// Tells the processor that the texts are about to be read.
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
  // Marking all records of a list costs one addition: the list counts its markings, and a record
  // remembers the count at which it was last cleared.
  const std::atomic<std::uint64_t>* markings_ = nullptr;  // null while on no list
  std::uint64_t clearedAtMarking_ = 0;
  std::uint32_t timesOnWatchList_ = 0;
  bool dirty_ = true;
};

static_assert(sizeof(PortDescriptor) <= 56,
              "a record is small: a hundred thousand of them are held");

}  // namespace sorvane
