// The records of connections, as a journal has them.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "registry/PortDescriptor.h"

namespace sorvane {

/// `Registry::replay` must have been called with this. One thread at a time.
class ReplayedRecords {
 public:
  using Record = std::shared_ptr<PortDescriptor>;

  /// Returns the record of the connection with that descriptor, which goes on: a new one if it had
  /// registered nothing and was on no watch list. Call it once for each.
  [[nodiscard]] Record take(int connection);
  /// Returns the records that no connection has taken, each with its descriptor. Their connections
  /// have not gone on: end each of them by `endConnection`.
  [[nodiscard]] std::vector<std::pair<int, Record>> rest() const;

 private:
  friend class Registry;
  std::vector<Record> records_;  // by the descriptors of the connections
};

}  // namespace sorvane
