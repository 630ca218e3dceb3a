// Publishing: what is published, when the name may change, and what a failure leaves behind.
#include "ControllerFixture.h"

namespace sorvane::test {
namespace {

class Publishing : public ControllerTest {};

TEST_F(Publishing, IsOffAtFirst) {
  EXPECT_FALSE(controller.isPublished());
  EXPECT_TRUE(network.services.empty());
}

TEST_F(Publishing, OffersTheServiceInTheDefaultDomains) {
  controller.activatePublishing(true);
  ASSERT_EQ(network.services.size(), 1U);
  EXPECT_EQ(published().domain(), "");
  EXPECT_EQ(published().type(), "_sorvane._tcp");
  EXPECT_EQ(published().name(), "");
  EXPECT_EQ(published().port, 20221);
  EXPECT_EQ(published().timesPublished, 1);
  EXPECT_TRUE(controller.isPublished());
}

TEST_F(Publishing, SwitchedOnTwicePublishesOnce) {
  controller.activatePublishing(true);
  controller.activatePublishing(true);
  EXPECT_EQ(network.services.size(), 1U);
  EXPECT_EQ(published().timesPublished, 1);
}

TEST_F(Publishing, SwitchedOffWhileOffDoesNothing) {
  controller.activatePublishing(false);
  EXPECT_FALSE(controller.isPublished());
  EXPECT_TRUE(network.services.empty());
}

TEST_F(Publishing, SwitchedOffStopsTheServiceAndKeepsItAlive) {
  controller.activatePublishing(true);
  const std::weak_ptr<ScriptedNetService> service = network.services.back();
  controller.activatePublishing(false);
  EXPECT_EQ(published().timesStopped, 1);
  EXPECT_FALSE(controller.isPublished());
  network.services.clear();
  EXPECT_FALSE(service.expired());
}

TEST_F(Publishing, SwitchedOnAgainMakesAnotherService) {
  controller.activatePublishing(true);
  controller.activatePublishing(false);
  controller.activatePublishing(true);
  EXPECT_EQ(network.services.size(), 2U);
  EXPECT_EQ(published().timesPublished, 1);
}

TEST_F(Publishing, DoesNotTellTheDelegate) {
  controller.activatePublishing(true);
  published().delegate()->netServiceWillPublish(published());
  published().delegate()->netServiceDidPublish(published());
  controller.activatePublishing(false);
  published().delegate()->netServiceDidStop(published());
  EXPECT_EQ(delegate.calls, 0);
}

TEST_F(Publishing, ThatFailsIsOffAndTellsTheDelegate) {
  controller.activatePublishing(true);
  published().delegate()->netServiceDidNotPublish(published(), "no");
  EXPECT_FALSE(controller.isPublished());
  EXPECT_EQ(delegate.calls, 1);
  EXPECT_EQ(delegate.lastSender, &controller);
  EXPECT_TRUE(lines().empty());
}

TEST_F(Publishing, ThatFailedKeepsItsServiceSoThatSwitchingOnPublishesNothing) {
  controller.activatePublishing(true);
  published().delegate()->netServiceDidNotPublish(published(), "no");
  controller.activatePublishing(true);
  EXPECT_TRUE(controller.isPublished());
  EXPECT_EQ(network.services.size(), 1U);
  EXPECT_EQ(published().timesPublished, 1);
}

TEST_F(Publishing, EndsWithTheController) {
  {
    ARendezvousController other("other", "_sorvane._tcp", kPort, network);
    other.activatePublishing(true);
  }
  EXPECT_EQ(published().timesStopped, 1);
  EXPECT_EQ(published().delegate(), nullptr);
}

TEST_F(Publishing, RefusesAnotherNameMeanwhile) {
  EXPECT_TRUE(controller.setName("first"));
  controller.activatePublishing(true);
  EXPECT_FALSE(controller.setName("second"));
  EXPECT_EQ(controller.name(), "first");
  EXPECT_EQ(lines(), Texts{"Cannot change name while service is published!"});
}

TEST_F(Publishing, TakesAnotherNameAfterItWasSwitchedOff) {
  controller.activatePublishing(true);
  controller.activatePublishing(false);
  EXPECT_TRUE(controller.setName("second"));
  controller.activatePublishing(true);
  EXPECT_EQ(published().name(), "second");
  EXPECT_TRUE(lines().empty());
}

class Socket : public ControllerTest {};

TEST_F(Socket, IsNotMadeUnasked) {
  controller.activatePublishing(true);
  EXPECT_EQ(controller.socket(), nullptr);
  EXPECT_TRUE(network.triedPorts.empty());
}

TEST_F(Socket, TakesThePortItself) {
  controller.createSocket();
  EXPECT_NE(controller.socket(), nullptr);
  EXPECT_EQ(controller.portNumber(), 20221);
}

TEST_F(Socket, StepsUpwardToTheFirstFreePortWhichIsThenPublished) {
  network.takenPorts = {20221, 20222};
  controller.createSocket();
  EXPECT_EQ(network.triedPorts, (std::vector<std::uint16_t>{20221, 20222, 20223}));
  EXPECT_EQ(controller.portNumber(), 20223);
  controller.activatePublishing(true);
  EXPECT_EQ(published().port, 20223);
}

TEST_F(Socket, GoesOnAtPortZeroAfterTheLastOne) {
  ARendezvousController last("", "_sorvane._tcp", 65535, network);
  network.takenPorts = {65535};
  last.createSocket();
  EXPECT_EQ(network.triedPorts, (std::vector<std::uint16_t>{65535, 0}));
  EXPECT_EQ(last.portNumber(), 65536);
}

TEST_F(Socket, IsMadeOnce) {
  controller.createSocket();
  const SocketPort* const first = controller.socket();
  controller.createSocket();
  EXPECT_EQ(controller.socket(), first);
  EXPECT_EQ(network.triedPorts.size(), 1U);
}

class Delegate : public ControllerTest {};

TEST_F(Delegate, IsTheOneThatWasSet) {
  EXPECT_EQ(controller.delegate(), &delegate);
  EXPECT_TRUE(lines().empty());
}

TEST_F(Delegate, ThatCannotAnswerCostsAConsoleLineAndIsSetAllTheSame) {
  controller.setDelegate(nullptr);
  EXPECT_EQ(controller.delegate(), nullptr);
  EXPECT_EQ(lines(), Texts{"Delegate does not respond to 'discoveredServicesDidChange:'!"});
  controller.activatePublishing(true);
  published().delegate()->netServiceDidNotPublish(published(), "nobody is told");
  EXPECT_EQ(delegate.calls, 0);
}

}  // namespace
}  // namespace sorvane::test
