#include "sorvctl/ChangeWait.h"

#include <algorithm>
#include <thread>

namespace sorvctl {

namespace {

using std::chrono::milliseconds;

// An answer costs the name server a few microseconds.
constexpr milliseconds kBetweenQuestions{200};

}  // namespace

bool hasChanged(Session& session) {
  return session.askForResult(action("didPortsChange")) == "YES";
}

bool changesWithin(Session& session, milliseconds limit) {
  const auto end = std::chrono::steady_clock::now() + limit;
  while (!hasChanged(session)) {
    const auto left = std::chrono::ceil<milliseconds>(end - std::chrono::steady_clock::now());
    if (left <= milliseconds(0)) {
      return false;
    }
    std::this_thread::sleep_for(std::min(left, kBetweenQuestions));
  }
  return true;
}

}  // namespace sorvctl
