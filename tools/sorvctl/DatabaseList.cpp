#include "sorvctl/DatabaseList.h"

#include "sorvctl/OlderLists.h"
#include "sorvctl/Progress.h"

namespace sorvctl {

bool bringUpToDate(PortPicture& picture, Session& session) {
  const Progress progress("asking for the databases");
  PortPicture::Next next = PortPicture::Next::askAgain;
  while (next == PortPicture::Next::askAgain) {
    next = picture.take(session.askForDictionary(picture.request()));
  }
  return next == PortPicture::Next::complete;
}

std::vector<Database> DatabaseReader::read(Session& session) {
  if (!bringUpToDate(picture_, session)) {
    return readOlderLists(session, bounds_.names);
  }
  std::vector<Database> databases = picture_.databases();
  for (Database& each : databases) {
    each.port.address = session.hostName();
  }
  return databases;
}

std::vector<Database> readDatabases(Session& session, PictureBounds bounds) {
  return DatabaseReader(bounds).read(session);
}

}  // namespace sorvctl
