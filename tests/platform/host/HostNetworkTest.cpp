#include <gtest/gtest.h>

#include "platform/host/HostNetwork.h"

namespace sorvane {
namespace {

NetworkInterface loopback() { return {"lo", true, true, "", {{"127.0.0.1", false}}}; }
NetworkInterface bridge() {
  return {"br0", true, false, "02:00:00:00:00:01", {{"172.17.0.1", false}}};
}
NetworkInterface card() {
  return {"eth0", true, false, "02:00:00:00:00:02", {{"10.0.0.5", true}, {"10.0.0.6", false}}};
}

TEST(AddressOfHost, IsThatOfTheDefaultRoutesInterface) {
  const InterfaceAddress address = addressOfHost({{loopback(), bridge(), card()}, "eth0", ""});
  EXPECT_EQ(address.address, "10.0.0.5");
  EXPECT_EQ(address.hasLifetime, true);
}

TEST(AddressOfHost, IsTheOneThatTheDefaultRoutePrefers) {
  const InterfaceAddress address =
      addressOfHost({{loopback(), bridge(), card()}, "eth0", "10.0.0.6"});
  EXPECT_EQ(address.address, "10.0.0.6");
  EXPECT_EQ(address.hasLifetime, false);
}

TEST(AddressOfHost, WithoutADefaultRouteIsTheFirstThatIsUpAndNotLoopback) {
  NetworkInterface down = bridge();
  down.up = false;
  EXPECT_EQ(addressOfHost({{loopback(), down, card()}, "", ""}).address, "10.0.0.5");
}

TEST(AddressOfHost, OfADefaultRouteWithoutAddressIsTheFirstOther) {
  NetworkInterface bare = card();
  bare.addresses.clear();
  EXPECT_EQ(addressOfHost({{loopback(), bare, bridge()}, "eth0", ""}).address, "172.17.0.1");
}

TEST(AddressOfHost, WithoutAnyIsTheLoopbackAddress) {
  EXPECT_EQ(addressOfHost({{loopback()}, "", ""}).address, "127.0.0.1");
  EXPECT_EQ(addressOfHost({}).address, "127.0.0.1");
  EXPECT_EQ(addressOfHost({}).hasLifetime, false);
}

TEST(EthernetAddressOfHost, IsOfTheInterfaceThatHoldsTheAddress) {
  const HostNetwork network{{loopback(), bridge(), card()}, "br0", ""};
  EXPECT_EQ(ethernetAddressOfHost(network, "10.0.0.6"), "02:00:00:00:00:02");
}

TEST(EthernetAddressOfHost, IsElseOfTheDefaultRoutesInterface) {
  const HostNetwork network{{loopback(), bridge(), card()}, "eth0", ""};
  EXPECT_EQ(ethernetAddressOfHost(network, "192.0.2.7"), "02:00:00:00:00:02");
  EXPECT_EQ(ethernetAddressOfHost(network, "127.0.0.1"), "02:00:00:00:00:02");
}

TEST(EthernetAddressOfHost, IsElseTheFirstThereIs) {
  NetworkInterface tunnel{"tun0", true, false, "", {{"10.8.0.1", false}}};
  EXPECT_EQ(ethernetAddressOfHost({{loopback(), tunnel, bridge()}, "tun0", ""}, "10.8.0.1"),
            "02:00:00:00:00:01");
}

TEST(EthernetAddressOfHost, IsAllZeroWhenThereIsNone) {
  EXPECT_EQ(ethernetAddressOfHost({{loopback()}, "", ""}, "127.0.0.1"), "00:00:00:00:00:00");
}

TEST(FormatEthernetAddress, GivesSixLowerCaseGroups) {
  const unsigned char bytes[] = {0x0A, 0x1b, 0x00, 0xFF, 0x09, 0xc0, 0x11, 0x12};
  EXPECT_EQ(formatEthernetAddress(bytes, 6), "0a:1b:00:ff:09:c0");
  EXPECT_EQ(formatEthernetAddress(bytes, 8), "") << "not of an Ethernet card";
  EXPECT_EQ(formatEthernetAddress(bytes, 0), "");
  const unsigned char zero[6] = {};
  EXPECT_EQ(formatEthernetAddress(zero, 6), "");
}

}  // namespace
}  // namespace sorvane
