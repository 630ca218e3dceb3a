// Reads the databases that a name server knows.
#pragma once

#include <vector>

#include "sorvctl/Database.h"
#include "sorvctl/PortPicture.h"
#include "sorvctl/Session.h"

namespace sorvctl {

/// Asks for what has changed since the picture was up to date. Returns false when the server does
/// not tell that. Throws a Failure as the session and the picture do.
[[nodiscard]] bool bringUpToDate(PortPicture& picture, Session& session);

/// Reads the databases of one name server again and again. A server that tells what has changed is
/// asked for that alone; one of an earlier version for its lists, and for each name.
class DatabaseReader {
 public:
  explicit DatabaseReader(PictureBounds bounds = {}) : bounds_(bounds), picture_(bounds) {}

  /// Returns all databases, ordered by name if the server tells what has changed. Their address is
  /// the one by which the name server was called. Throws a Failure as the session and the picture
  /// do.
  [[nodiscard]] std::vector<Database> read(Session& session);
  /// The next reading is one of everything.
  void forget() { picture_.forget(); }

 private:
  PictureBounds bounds_;
  PortPicture picture_;
};

/// Reads the databases once.
[[nodiscard]] std::vector<Database> readDatabases(Session& session, PictureBounds bounds = {});

}  // namespace sorvctl
