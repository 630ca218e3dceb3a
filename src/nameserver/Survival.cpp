#include "nameserver/Survival.h"

#include "platform/Descriptor.h"
#include "platform/SharedDescriptors.h"

namespace sorvane {

Survival::Survival() : Survival(endOfDescriptors()) {}

std::unique_ptr<Survival> Survival::anew() const {
  auto made = std::make_unique<Survival>();
  made->noteLock(lock());
  made->note(figures());
  return made;
}

SurvivingSockets Survival::takeSockets(const std::vector<int>& ownDescriptors) {
  const std::vector<int> open = openDescriptors();
  SurvivingSockets sockets = survivingSockets(block().listener.load() - 1, open, marks_);
  std::vector<int> kept = journal_.files();
  kept.insert(kept.end(), ownDescriptors.begin(), ownDescriptors.end());
  kept.insert(kept.end(), sockets.connections.begin(), sockets.connections.end());
  kept.push_back(sockets.listener);
  closeDescriptorsExcept(kept);
  return sockets;
}

}  // namespace sorvane
