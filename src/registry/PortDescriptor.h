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
#include <utility>

#include "platform/KeptForm.h"
#include "registry/HeapBytes.h"
#include "registry/TextBlock.h"

namespace sorvane {

/// How much is written of what is kept. A journal has the marks of the watchers elsewhere, and is
/// written while other threads change them and make info dictionaries.
enum class KeptPart : std::uint8_t {
  all,
  inJournal,  ///< without watching, info dictionaries and cached lists, as if there were none
};

/// Each live connection has one as its context object. The record is registered while the port map
/// holds it. Connection and map share it, so make it with `std::make_shared`.
///
/// A text getter returns nothing for nil. Its view is valid for as long as the record lives and the
/// text is not replaced. When a setter replaces the text, or when an alert lapses, the view stays
/// valid until the end of the current message: until the thread that has replaced the text calls
/// `cleanupAfterMessage` of the delegate. RetiredTexts.h tells how many such texts a thread keeps
/// at most, with or without a message. A setter may be given such a view.
///
/// Threads: only requests of the record's own connection change the registration and the dirty
/// flag, with `serverLock` held, and the info dictionary, with the info server's lock held. They
/// are carried out one after the other, so the end of that connection can read all of these without
/// a lock. Commands of any connection read and change state and alert, with `serverLock` held. The
/// end of a connection takes no `serverLock` and sees them inside the inner lock of the registry:
/// whoever changes a text of a record that the registry knows does that inside that lock, too,
/// through PortMap, which keeps the sums of what is held.
class PortDescriptor {
 private:
  enum PortText : std::uint8_t { kNumber, kName, kHost, kType, kKey, kAddress };
  static constexpr std::array<std::string_view, 6> kPortTexts = {
      "portNumber", "portName", "portHost", "portType", "", ""};
  enum StateText : std::uint8_t { kStatus, kAlert, kAlertTime };
  static constexpr std::array<std::string_view, 3> kStateTexts = {"", "", ""};
  using PortBlock = TextBlock<kPortTexts>;
  using StateBlock = TextBlock<kStateTexts>;

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

  /// What the port map notes about the record. The registry's inner lock guards it.
  struct Holdings {
    std::uint32_t nameBytes = 0;      ///< blocks of the heap that the names of its entries take
    std::uint32_t entries : 30 = 0;   ///< in how many slots of the map the record is
    std::uint32_t isCounted : 1 = 0;  ///< the sums of the map contain the record
    std::uint32_t hasLeft : 1 = 0;    ///< its connection has ended
    std::uint32_t anchor = 0;         ///< the low bits of the hash of its oldest entry
  };

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

  /// A registration whose texts lie in a block already. Long texts take time to copy, so that is
  /// done where no lock is held.
  class Prepared {
   public:
    /// Copies the texts with one allocation. Raises NSException when they are longer than 2 GiB
    /// together.
    explicit Prepared(const Registration& registration) : texts_(textsOf(registration)) {}

    /// Returns what it costs to keep in a record, bytes: the block and the record itself.
    [[nodiscard]] std::size_t bytes() const { return registrationBytes(texts_.bytes()); }

   private:
    friend class PortDescriptor;
    PortBlock texts_;
  };

  /// Replaces the whole registration. Every other setter of a text raises NSException and changes
  /// nothing when the texts of its group are longer than 2 GiB together.
  void setRegistration(Prepared&& registration) {
    port_.replaceWith(std::move(registration.texts_));
  }
  void setRegistration(const Registration& registration) {
    setRegistration(Prepared(registration));
  }
  [[nodiscard]] std::size_t registrationBytes() const { return registrationBytes(port_.bytes()); }
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
  /// Does the same as if it was done at that time, seconds since the reference date.
  void setAlertStatus(std::optional<std::string_view> text, double time);
  /// Removes the alert as one that is no longer fresh.
  void dropAlert() { state_.set(kAlert, std::nullopt); }
  /// Returns the alert as it was set, whether it is fresh or not. Changes nothing.
  [[nodiscard]] std::optional<std::string_view> alertAsSet() const { return state_.text(kAlert); }
  /// When the alert was last set, seconds since the reference date; 0 before.
  [[nodiscard]] double alertStatusTimestamp() const;

  /// Returns what state and alert cost to keep, bytes; then what they would cost with another text.
  [[nodiscard]] std::size_t stateBytes() const { return heapBytes(state_.bytes()); }
  [[nodiscard]] std::size_t stateBytesWithStatus(std::string_view text) const;
  [[nodiscard]] std::size_t stateBytesWithAlert(std::string_view text) const;

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
  /// Returns false when the record is on it too often to be counted once more.
  bool joinWatchList(const std::atomic<std::uint64_t>& timesSetDirty);
  /// Takes the record off its list. Returns how often it was on it. The flag stays as it is.
  std::uint32_t leaveWatchList();
  [[nodiscard]] std::uint32_t timesOnWatchList() const { return timesOnWatchList_; }

  // ---- Bounds

  [[nodiscard]] const Holdings& holdings() const { return holdings_; }
  [[nodiscard]] Holdings& holdings() { return holdings_; }

  // ---- What is kept for a program that goes on

  /// The watch list of the restored records that are on one.
  struct Watched {
    const std::atomic<std::uint64_t>& timesSetDirty;
    std::uint64_t times;  ///< what that will be
  };
  /// Writes everything but the holdings: see PortTable and KeptRecords.
  void keep(KeptWriter& writer, KeptPart part = KeptPart::all) const;
  /// Makes this, which is new, the record that was kept. Raises NSException, most often KeptFault.
  void restore(KeptReader& reader, const Watched& list);

  /// What a record knows of its watch list.
  struct Watching {
    std::uint64_t clearedAt = 0;
    std::uint32_t times = 0;
    bool isDirty = true;
  };
  [[nodiscard]] Watching watching() const { return {clearedAt_, timesOnWatchList_, dirty_ != 0}; }
  /// Puts this, which is on no list, on the list as it was. Raises KeptFault.
  void restoreWatching(const Watching& watching, const std::atomic<std::uint64_t>& timesSetDirty);

  /// Has the processor fetch the texts, which are about to be read.
  void prefetchTexts() const {
    port_.prefetch();
    state_.prefetch();
  }

  /// Does nothing.
  void invalidate() {}

 private:
  // A registered record may get an info dictionary at any time: it is counted from the start.
  [[nodiscard]] static std::size_t registrationBytes(std::size_t blockBytes);
  [[nodiscard]] static PortBlock::Texts textsOf(const Registration& registration);
  [[nodiscard]] StateBlock::Texts withAlert(std::optional<std::string_view> text,
                                            const double& time) const;
  static void keepNoWatching(KeptWriter& writer);
  void restoreTexts(KeptReader& reader);

  PortBlock port_;
  StateBlock state_;  // the time of the alert is there as its bytes: few records have one
  std::unique_ptr<Info> info_;
  // Setting all records of a list dirty costs one addition: the list counts how often that was
  // done, and a record remembers the count at which its flag was last cleared.
  const std::atomic<std::uint64_t>* timesSetDirty_ = nullptr;  // null while on no list
  std::uint64_t clearedAt_ = 0;
  std::uint32_t timesOnWatchList_ : 31 = 0;
  std::uint32_t dirty_ : 1 = 1;
  Holdings holdings_;
};

static_assert(sizeof(PortDescriptor) <= 56,
              "a record is small: a hundred thousand of them are held");

}  // namespace sorvane
