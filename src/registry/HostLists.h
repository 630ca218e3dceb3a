// The launcher hosts that are connected.
#pragma once

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "platform/KeptForm.h"

namespace sorvane {

/// Returns NAME@PLACE: the key of a host (NAME@ADDRESS) or of a port (NAME@HOST).
[[nodiscard]] std::string joinedKey(std::string_view name, std::string_view place);

/// Two lists of host keys. Neither exists until a command first needs it. Not synchronised: the
/// registry's inner lock guards them.
class HostLists {
 public:
  using List = std::vector<std::string>;

  /// Makes both lists, empty, unless the first exists.
  void createBoth();
  /// Makes the first list, empty, unless it exists.
  void createHostList();

  /// The first list has at most this many keys.
  static constexpr std::size_t kMostHosts = 10000;

  /// Notes the host's name. Appends the key of name and address to the first list, deliberately
  /// only when the key is on it already: a list that is empty stays empty. Raises NSException and
  /// changes nothing when the list is full.
  void connect(std::string_view hostName, std::string_view address);

  /// Removes the first occurrence of the key from the first list, and the element at the same
  /// position from the second list if there is one. Returns whether the key was there.
  bool remove(std::string_view key);

  /// Returns the keys of the first list, or of the second when `alternate`, joined by "|". A list
  /// that is empty or does not exist gives the empty text.
  [[nodiscard]] std::string joined(bool alternate) const;

  void keep(KeptWriter& writer) const;
  /// Makes these, which do not exist, what was kept. Raises KeptFault.
  void restore(KeptReader& reader);

  bool operator==(const HostLists&) const = default;

  std::optional<List> hostList;
  std::optional<List> alternateHostList;
  std::optional<std::string> hostNameString;  ///< the name given to the last `connect`
};

}  // namespace sorvane
