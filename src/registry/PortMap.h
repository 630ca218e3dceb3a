// The port map: the ports by name, what all of it costs to keep, and the bounds of that.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string_view>

#include "registry/PortTable.h"
#include "registry/RemovedNames.h"

namespace sorvane {

class Journal;

/// What the registry keeps at most, bytes.
struct RegistryLimits {
  std::uint64_t connection = std::uint64_t{64} << 20;  ///< of one connection
  std::uint64_t leftBehind = std::uint64_t{64} << 20;  ///< of all ended connections together
  std::uint64_t all = std::uint64_t{512} << 20;        ///< of everything
  RemovedNames::Limits removed = {};                   ///< of names that are gone; beyond `all`
};

/// A record counts as soon as it is registered or entered, and until its connection has ended and
/// its last entry is gone. A connection holds its texts (state and alert, too, whoever has set
/// them), its record, the names of its entries, and two slots of the table for each entry. All that
/// is counted are these texts, records and names, and the table as it is.
///
/// The sums are kept by addition at each change, so asking for one costs nothing. While the map
/// counts a record, only the map may change the record's texts.
///
/// A function that would pass a limit raises NSException and changes nothing. Not synchronised: the
/// registry's inner lock guards it.
class PortMap {
 public:
  using Record = PortTable::Record;
  using Registration = PortDescriptor::Registration;

  explicit PortMap(const RegistryLimits& limits) : limits_(limits), removed_(limits.removed) {}

  // ---- Reading: see PortTable

  [[nodiscard]] std::size_t size() const { return table_.size(); }
  [[nodiscard]] const Record* find(const PortName& name) const { return table_.find(name); }
  [[nodiscard]] std::size_t slotCount() const { return table_.slotCount(); }
  [[nodiscard]] const Record& inSlot(std::size_t index) const { return table_.inSlot(index); }

  // ---- The order of the last changes. A change of a record is one of all of its names.

  /// The records in the order in which they were registered or entered, got a state or an alert, or
  /// lost their connection.
  [[nodiscard]] const PortTable& table() const { return table_; }
  /// The names that were removed, with their place in the same order.
  [[nodiscard]] const RemovedNames& removedNames() const { return removed_; }
  /// Returns the number of the last change of either.
  [[nodiscard]] ChangeOrder::Number lastChange() const { return table_.lastChange(); }

  // ---- Registering. What a function returns is to be destroyed outside the lock.

  /// Replaces the record's registration. If it has a number and a name, first removes the entry of
  /// that name, whichever record that has, and returns that record.
  ///
  /// Here and below, `connection` is the descriptor of the record's connection, by which a journal
  /// calls the record. Only without a journal may it be left out.
  Record replaceRegistration(PortDescriptor& record, const Registration& registration,
                             int connection = kNoConnection);
  /// Enters the record under the name, whose text it may take. Returns the record that it replaces,
  /// or null.
  Record enter(OwnedPortName&& name, Record record, int connection = kNoConnection);
  /// A registration and the name in it, which must not be nil.
  struct NamedRegistration {
    // NOLINTNEXTLINE(google-explicit-constructor): the same registration, ready to be entered
    NamedRegistration(const Registration& registration)
        : name(*registration.portName), texts(registration) {}

    OwnedPortName name;
    PortDescriptor::Prepared texts;
  };
  /// Replaces the record's registration and enters it under its name. What it does not take of the
  /// registration stays there.
  Record enterWith(NamedRegistration&& registration, Record record, int connection = kNoConnection);
  /// Removes the entry of the name, whichever record that has, and returns that record; null if
  /// there is none.
  Record remove(const PortName& name);

  // ---- State and alert

  /// Sets the state of the port of that name, if there is one.
  void setStatus(const PortName& name, std::string_view text);
  /// Does the same with its alert.
  void setAlert(const PortName& name, std::string_view text);
  /// Does the same as if it was done at that time, seconds since the reference date.
  void setAlert(const PortName& name, std::string_view text, double time);
  /// Returns the alert of a record that has entries while it is fresh, and drops it when it is not.
  std::optional<std::string_view> alertOf(PortDescriptor& record);
  /// Drops the alert of a record.
  void dropAlert(PortDescriptor& record);

  // ---- Ends of connections

  /// Returns the name whose entry goes with the record's connection; nothing for a record without
  /// a name or without a key.
  [[nodiscard]] static std::optional<PortName> nameThatEndsWith(const PortDescriptor& record);
  /// Notes that the record's connection has ended: removes the entry of `name`, its
  /// `nameThatEndsWith`, whichever record that has, and returns that record. What is left of the
  /// ended one under further names is left behind.
  Record end(PortDescriptor& record, const std::optional<PortName>& name,
             int connection = kNoConnection);
  /// True when what was left behind takes more than it may.
  [[nodiscard]] bool hasTooMuchLeftBehind() const { return leftBehindBytes_ > limits_.leftBehind; }
  /// Removes the entry that was left behind first, and returns its record. There must be one.
  Record removeOldestLeftBehind();

  // ---- The journal

  static constexpr int kNoConnection = -1;

  /// From now on each function above that changes something tells the journal. Null: none.
  void setJournal(Journal* journal) { journal_ = journal; }
  [[nodiscard]] Journal* journal() const { return journal_; }
  /// Calls `operation` and refuses nothing meanwhile because of a limit.
  template <typename Operation>
  void withoutLimits(Operation&& operation);

  // ---- What is kept for a program that goes on (KeptPorts.cpp)

  [[nodiscard]] const RegistryLimits& limits() const { return limits_; }
  void keep(KeptWriter& writer, KeptPart part = KeptPart::all) const;
  /// Makes this, which is empty, the map that was kept, whatever its limits are. Raises
  /// NSException, most often KeptFault, and then is of no use.
  void restore(KeptReader& reader, const SipKey& key, const PortDescriptor::Watched& list);
  /// Counts a restored record that has no entry. One that had registered nothing adds nothing.
  void countRestored(PortDescriptor& record);

  // ---- Sums, bytes

  /// Returns what all of it costs to keep.
  [[nodiscard]] std::uint64_t bytes() const { return recordBytes_ + table_.bytes(); }
  /// Returns what the connection of this record holds.
  [[nodiscard]] static std::uint64_t bytesOf(const PortDescriptor& record);
  /// Returns what ended connections have left behind.
  [[nodiscard]] std::uint64_t leftBehindBytes() const { return leftBehindBytes_; }
  /// Returns the length of the state list: NAME:STATE, joined by one byte, of each entry.
  [[nodiscard]] std::uint64_t stateListBytes() const { return joinedBytes(stateEntryBytes_); }
  /// Returns the most that the length of the alert list can be. It is less when alerts have lapsed
  /// that nobody has read since.
  [[nodiscard]] std::uint64_t alertListBytes() const { return joinedBytes(alertEntryBytes_); }

  /// Returns whether the lists of states and alerts tell of a port of this name.
  [[nodiscard]] static bool isListed(std::string_view name) {
    return name != "sorvexec" && name != "VN_nameserver" && name != "VN_infoserver";
  }
  /// Returns how a list calls a record: by its present name.
  [[nodiscard]] static std::string_view listedName(const PortDescriptor& record) {
    return record.portName().value_or("");
  }
  /// Returns what the state list tells of a record.
  [[nodiscard]] static std::string_view listedState(const PortDescriptor& record) {
    return record.portStatus().value_or("running");
  }

 private:
  // What a change adds to the sums: to what the record's connection holds, and to everything.
  struct Growth {
    std::int64_t ofConnection = 0;
    std::int64_t ofAll = 0;
  };
  void requireRoom(const PortDescriptor& record, Growth growth) const;

  // Calls `set(record)` and then enters the record.
  template <typename Set>
  Record enter(PortTable::Place place, Record record, OwnedPortName&& name, Set&& set);
  Record remove(PortTable::Place place);
  // Returns whether there is a port of that name. Raises when the text would pass a limit.
  template <std::size_t (PortDescriptor::*bytesWith)(std::string_view) const, typename Set>
  bool setText(const PortName& name, std::string_view text, Set&& set);

  // Changes a record, or what is noted about it, and keeps the sums right. Afterwards the record
  // counts, unless its connection has ended and it has no entry.
  template <typename Change>
  void change(PortDescriptor& record, Change&& make);
  void addToSums(const PortDescriptor& record, std::uint64_t sign);
  // What the name of an entry takes outside its slot.
  [[nodiscard]] static std::size_t nameBytes(std::string_view name);

  // `bytes` is what the registration costs to keep.
  [[nodiscard]] static Growth growthByRegistration(const PortDescriptor& record, std::size_t bytes);
  [[nodiscard]] Growth growthByEntry(PortTable::Place place, std::string_view name,
                                     const PortDescriptor& record) const;
  static std::uint64_t joinedBytes(std::uint64_t entryBytes) {
    return entryBytes == 0 ? 0 : entryBytes - 1;
  }

  RegistryLimits limits_;
  PortTable table_;
  RemovedNames removed_;
  std::uint64_t recordBytes_ = 0;      // records, their texts and the names of their entries
  std::uint64_t leftBehindBytes_ = 0;  // of what connections held that have ended
  std::uint64_t stateEntryBytes_ = 0;  // each entry of the list with the byte behind it
  std::uint64_t alertEntryBytes_ = 0;  // the same
  Journal* journal_ = nullptr;
};

template <typename Operation>
void PortMap::withoutLimits(Operation&& operation) {
  const RegistryLimits limits = limits_;
  limits_.connection = ~std::uint64_t{0};
  limits_.all = ~std::uint64_t{0};
  operation();
  limits_ = limits;
}

}  // namespace sorvane
