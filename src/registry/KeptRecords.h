// The records of connections, as they are kept for a program that goes on.
//
// A record that has entries is kept with the registry, which `Registry::keep` writes first. Its
// connection then tells only the slot of the oldest one. Any other record is kept with its
// connection.
#pragma once

#include <memory>
#include <vector>

#include "platform/KeptForm.h"
#include "registry/PortDescriptor.h"

namespace sorvane {

class Registry;

/// Writes the records of connections. `Registry::keep` must have been called with this, and nothing
/// may have changed since. One thread at a time.
class KeptRecords {
 public:
  /// Writes the record of one connection.
  void keepRecord(KeptWriter& writer, const PortDescriptor& record) const;

 private:
  friend class Registry;
  const Registry* registry_ = nullptr;
};

/// Reads the records of connections. `Registry::restore` must have been called with this, and
/// nothing may have changed since. One thread at a time.
class RestoredRecords {
 public:
  /// Reads the record of one connection. Raises NSException, most often KeptFault, also for a
  /// record that another connection has.
  [[nodiscard]] std::shared_ptr<PortDescriptor> restoreRecord(KeptReader& reader);
  /// Returns the records with entries whose connection has not ended and that no connection has got
  /// yet. Once each has got its own, these are the name server's own, which have no connection.
  [[nodiscard]] std::vector<std::shared_ptr<PortDescriptor>> unclaimed() const;

 private:
  friend class Registry;
  Registry* registry_ = nullptr;
  std::vector<bool> isClaimed_;  // by the slot of the oldest entry
};

}  // namespace sorvane
