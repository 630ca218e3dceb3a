#include <gtest/gtest.h>

#include <chrono>

#include "sorvctl/Failure.h"
#include "sorvctl/Session.h"
#include "support/ScriptedPeer.h"
#include "support/WireBytes.h"

namespace sorvctl {
namespace {

using sorvane::test::frameOfTexts;
using sorvane::test::PeerConnection;
using sorvane::test::ScriptedPeer;
using namespace std::chrono_literals;

Options optionsFor(const ScriptedPeer& peer) {
  Options options;
  options.port = peer.port();
  return options;
}

TEST(Session, EndsAtItsDeadlineHoweverManyRepliesCome) {
  // Each reply comes a little later than the request. Without a deadline this goes on for ever.
  const ScriptedPeer slow([](PeerConnection& client) {
    while (client.receiveRequest() && !client.isClosedByPeer(20ms)) {
      client.send(frameOfTexts({{"result", "NO"}}));
    }
  });
  Session session(optionsFor(slow));
  session.endBy(std::chrono::steady_clock::now() + 300ms);
  try {
    while (true) {
      EXPECT_EQ(session.askForResult(action("didPortsChange")), "NO");
    }
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), Status::notReached);
    EXPECT_NE(std::string(failure.what()).find("no answer in time"), std::string::npos)
        << failure.what();
  }
}

TEST(Session, TakesNoReplyLongerThanItsOptionsSay) {
  const ScriptedPeer peer([](PeerConnection& client) {
    while (client.receiveRequest()) {
      client.send(frameOfTexts({{"result", std::string(1000, 'x')}}));
    }
  });
  Options options = optionsFor(peer);
  Session patient(options);
  EXPECT_EQ(patient.askForResult(action("databaseStates")).size(), 1000U);
  patient.connection().invalidate();
  options.maximumReplyBytes = 500;
  Session session(options);
  EXPECT_THROW((void)session.askForResult(action("databaseStates")), Failure);
}

}  // namespace
}  // namespace sorvctl
