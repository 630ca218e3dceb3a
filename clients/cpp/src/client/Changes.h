// Asks a name server what has changed, and one of an earlier version what is there.
#pragma once

#include <string>
#include <vector>

#include "client/Picture.h"
#include "client/net/Connection.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

/// Remembers where to go on, also from one connection to the next.
class Changes {
 public:
  /// Brings the picture up to date. The name server is asked page after page; if it lacks that, it
  /// is asked for its lists, and for each name in them.
  Result<void> bring(Picture& picture, Connection& connection);
  /// The same without the lists: the error `unsupported` means that the name server lacks the
  /// pages.
  Result<void> bringByPages(Picture& picture, Connection& connection);

 private:
  std::string instance_;
  std::string sequence_;
};

/// Lists the databases by the commands that every version has.
Result<std::vector<Entry>> listByNames(Connection& connection);

/// The same without number, host and type.
Result<std::vector<Entry>> listStates(Connection& connection);

/// The request "findPort".
[[nodiscard]] Request findRequest(const Connection& connection, std::string_view name);

/// Reads its reply. The error is `notFound`, `refused` or `protocol`.
Result<Entry> readFound(const Reply& reply, std::string_view name);

}  // namespace sorvane::client::detail
