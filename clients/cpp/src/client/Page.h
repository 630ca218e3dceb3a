// A reply to "portChanges".
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "client/wire/Reply.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

/// What has changed of one name.
struct PageEntry {
  Entry entry;        ///< with the name alone when it is gone
  bool gone = false;  ///< the name is no longer registered
};

struct Page {
  std::string instance;            ///< of the name server
  std::string sequence;            ///< where to go on
  bool more = false;               ///< there is more to ask for
  bool restart = false;            ///< everything is told anew, from here on
  std::vector<PageEntry> entries;  ///< of two rows of a name, the later one alone
};

/// Reads a reply. The errors are `unsupported` when the name server lacks the command, `refused`,
/// and `protocol`: also for a page that has more behind it and tells nothing.
[[nodiscard]] Result<Page> readPage(const Reply& reply);

/// Reads the number of a port: 1 to 65535, or 0 when the text is none.
[[nodiscard]] int readPort(std::string_view text);

/// Reads a time in seconds since 1 January 2001 GMT, with up to six decimals. Nothing when the text
/// is none, and before or beyond what the clock can tell.
[[nodiscard]] std::optional<std::chrono::system_clock::time_point> readTime(std::string_view text);

/// True for the names that are no databases: the name server's own, and the launcher's.
[[nodiscard]] bool isOwnName(std::string_view name);

}  // namespace sorvane::client::detail
