// The launcher hosts that are connected, as the commands keep them.
#pragma once

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace sorvane {

/// The key of a host: NAME@ADDRESS, and of a port: NAME@HOST.
[[nodiscard]] std::string joinedKey(std::string_view name, std::string_view place);

/// Two lists of host keys, neither of which exists until a command first needs it. Not
/// synchronised: the registry's inner lock guards them.
class HostLists {
 public:
  using List = std::vector<std::string>;

  /// Makes both lists, empty, unless the first exists.
  void createBoth();
  /// Makes the first list alone, empty, unless it exists.
  void createHostList();

  /// Keeps the host's name, and appends the key of name and address to the first list when it is
  /// listed there already: deliberately only then, so a list that is empty stays empty.
  void connect(std::string_view hostName, std::string_view address);

  /// Removes the first occurrence of the key from the first list, and what stands at the same
  /// position of the second, if that reaches so far. Answers whether it was there.
  bool remove(std::string_view key);

  /// The keys of the first list, or of the second for requesters with an alias, joined by "|"; the
  /// empty text for a list that is empty or does not exist.
  [[nodiscard]] std::string joined(bool alternate) const;

  std::optional<List> hostList;
  std::optional<List> alternateHostList;
  std::optional<std::string> hostNameString;  ///< the name given to the last `connect`
};

}  // namespace sorvane
