// The list of discovered services.
#include <bit>

#include "ControllerFixture.h"

namespace sorvane::test {
namespace {

class Records : public ControllerTest {
 protected:
  Records() { controller.activateBrowsing(true); }
};

// 20221 is 0x4EFD; its bytes in network order, read as the host's own.
constexpr int kRawPort = std::endian::native == std::endian::little ? 0xFD4E : 0x4EFD;

TEST_F(Records, HoldTheAddressTheRawPortTheNameAndTheService) {
  const auto service = found("one", {"10.0.0.1"});
  const auto list = controller.discoveredServicesWithInfo();
  ASSERT_EQ(list.size(), 1U);
  EXPECT_EQ(list[0]->ip, "10.0.0.1");
  EXPECT_EQ(list[0]->port, kRawPort);
  EXPECT_EQ(list[0]->name, "one");
  EXPECT_EQ(list[0]->service, service);
  EXPECT_EQ(portFromRaw(static_cast<std::uint16_t>(list[0]->port)), 20221);
}

TEST_F(Records, OfTwoAddressesAreTwoAndTellTwice) {
  found("one", {"10.0.0.1", "10.0.0.2"});
  const std::string port = std::to_string(kRawPort);
  EXPECT_EQ(records(), (Texts{"one 10.0.0.1 " + port, "one 10.0.0.2 " + port}));
  EXPECT_EQ(delegate.calls, 2);
}

TEST_F(Records, OfOneAddressReportedTwiceAreOneAndTellOnce) {
  const auto service = found("one", {"10.0.0.1"});
  resolve(service, {"10.0.0.1"});
  EXPECT_EQ(records().size(), 1U);
  EXPECT_EQ(delegate.calls, 1);
}

TEST_F(Records, OfOneAddressAreOneEvenForTwoServices) {
  found("one", {"10.0.0.1"});
  found("two", {"10.0.0.1"});
  EXPECT_EQ(records(), Texts{"one 10.0.0.1 " + std::to_string(kRawPort)});
  EXPECT_EQ(delegate.calls, 1);
}

TEST_F(Records, OfOneAddressWithTwoPortsAreTwo) {
  found("one", {"10.0.0.1"}, 20221);
  found("two", {"10.0.0.1"}, 20222);
  EXPECT_EQ(records().size(), 2U);
  EXPECT_EQ(delegate.calls, 2);
}

TEST_F(Records, DoNotHoldTheLoopbackAddress) {
  found("one", {"127.0.0.1"});
  EXPECT_EQ(records(), Texts{});
  EXPECT_EQ(delegate.calls, 0);
}

TEST_F(Records, HoldWhatFollowsTheLoopbackAddress) {
  found("one", {"127.0.0.1", "10.0.0.1"});
  EXPECT_EQ(records().size(), 1U);
}

TEST_F(Records, HoldOtherLoopbackAddresses) {
  found("one", {"127.0.0.2"});
  EXPECT_EQ(records().size(), 1U);
}

TEST_F(Records, ReadAnIpv6AddressAsIfItWereIpv4) {
  found("one", {"fe80::1"});
  EXPECT_EQ(records(), Texts{"one 0.0.0.0 " + std::to_string(kRawPort)});
}

TEST_F(Records, TakeWhatAnAddressLacksAsZero) {
  const auto service = network.browser->find("one");
  service->knownAddresses = {""};
  service->delegate()->netServiceDidResolveAddress(service);
  EXPECT_EQ(records(), Texts{"one 0.0.0.0 0"});
}

TEST_F(Records, OfARemovedServiceGoAllAtOnceAndTellOnce) {
  const auto one = found("one", {"10.0.0.1", "10.0.0.2"});
  found("two", {"10.0.0.3"});
  resolve(one, {"10.0.0.4"});
  delegate.calls = 0;
  removed(one);
  EXPECT_EQ(records(), Texts{"two 10.0.0.3 " + std::to_string(kRawPort)});
  EXPECT_EQ(delegate.calls, 1);
}

TEST_F(Records, GoByTheEqualityOfServicesNotByTheirIdentity) {
  const auto one = found("one", {"10.0.0.1"});
  removed(std::make_shared<ScriptedNetService>(one->domain(), one->type(), "one", 0));
  EXPECT_EQ(records(), Texts{});
}

TEST_F(Records, StayWhenAnUnknownServiceIsRemovedButTheDelegateIsTold) {
  found("one", {"10.0.0.1"});
  delegate.calls = 0;
  removed(std::make_shared<ScriptedNetService>("local.", "_sorvane._tcp", "two", 0));
  EXPECT_EQ(records().size(), 1U);
  EXPECT_EQ(delegate.calls, 1);
}

TEST_F(Records, AreAskedByNameAndTheFirstCounts) {
  found("one", {"10.0.0.1"});
  found("two", {"10.0.0.2", "10.0.0.3"});
  EXPECT_EQ(controller.ipForName("two"), "10.0.0.2");
  EXPECT_EQ(controller.portForName("two"), kRawPort);
}

TEST_F(Records, OfAnUnknownNameAnswerNilAndZero) {
  found("one", {"10.0.0.1"});
  EXPECT_EQ(controller.ipForName("One"), std::nullopt);
  EXPECT_EQ(controller.portForName("One"), 0);
}

TEST_F(Records, AreHandedOutInAListOfTheCallersOwn) {
  found("one", {"10.0.0.1"});
  const auto before = controller.discoveredServicesWithInfo();
  found("two", {"10.0.0.2"});
  EXPECT_EQ(before.size(), 1U);
  EXPECT_EQ(before[0], controller.discoveredServicesWithInfo()[0]);
}

}  // namespace
}  // namespace sorvane::test
