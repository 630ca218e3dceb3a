// Socket addresses as bytes, names of services, and listening sockets.
#include <gtest/gtest.h>

#include <bit>
#include <limits>

#include "platform/NetService.h"
#include "platform/SocketAddress.h"
#include "platform/bonjour/ServiceNames.h"

namespace sorvane::test {
namespace {

TEST(SocketAddress, OfAnIpv4AddressReadsBackWithItsPortUnconverted) {
  const Ipv4SocketAddress address = readAsIpv4SocketAddress(socketAddress("192.0.2.7", 20221));
  EXPECT_EQ(address.dottedAddress, "192.0.2.7");
  EXPECT_EQ(address.rawPort, std::endian::native == std::endian::little ? 64846 : 20221);
  EXPECT_EQ(portFromRaw(address.rawPort), 20221);
}

TEST(SocketAddress, OfAnIpv6AddressHasItsPortInTheSamePlace) {
  const Ipv4SocketAddress address = readAsIpv4SocketAddress(socketAddress("2001:db8::7", 20221, 3));
  EXPECT_EQ(address.dottedAddress, "0.0.0.0");
  EXPECT_EQ(portFromRaw(address.rawPort), 20221);
}

TEST(SocketAddress, OfSomethingElseIsEmpty) {
  for (const char* const text : {"", "localhost", "192.0.2", "192.0.2.256", "2001:db8::g"}) {
    EXPECT_EQ(socketAddress(text, 1), "") << text;
  }
}

TEST(SocketAddress, ThatIsCutShortReadsAsZeroWhereItLacksBytes) {
  const std::string whole = socketAddress("192.0.2.7", 20221);
  for (std::size_t length = 0; length < 8; ++length) {
    EXPECT_NE(readAsIpv4SocketAddress(whole.substr(0, length)).dottedAddress, "192.0.2.7");
  }
  EXPECT_EQ(readAsIpv4SocketAddress(whole.substr(0, 6)).dottedAddress, "192.0.0.0");
}

TEST(ServiceName, IsNumberedFromTheSecondAttempt) {
  EXPECT_EQ(serviceNameOfAttempt("name", 1), "name");
  EXPECT_EQ(serviceNameOfAttempt("name", 2), "name (2)");
  EXPECT_EQ(serviceNameOfAttempt("name", 10), "name (10)");
}

TEST(ServiceName, ThatIsTooLongForItsNumberIsCut) {
  EXPECT_EQ(serviceNameOfAttempt(std::string(59, 'x'), 2), std::string(59, 'x') + " (2)");
  EXPECT_EQ(serviceNameOfAttempt(std::string(63, 'x'), 2), std::string(59, 'x') + " (2)");
  EXPECT_EQ(serviceNameOfAttempt(std::string(63, 'x'), 10), std::string(58, 'x') + " (10)");
}

TEST(ServiceName, IsCutAtACharactersBorder) {
  const std::string name = std::string(57, 'x') + "\u20ac\u20ac";  // three bytes each
  EXPECT_EQ(serviceNameOfAttempt(name, 2), std::string(57, 'x') + " (2)");
}

TEST(SocketPort, HoldsItsPortUntilItGoes) {
  std::uint16_t port = 20000;
  std::unique_ptr<SocketPort> first;
  while (first == nullptr && port < std::numeric_limits<std::uint16_t>::max()) {
    first = SocketPort::listeningOnTcpPort(++port);
  }
  ASSERT_NE(first, nullptr);
  EXPECT_EQ(SocketPort::listeningOnTcpPort(port), nullptr);
  first.reset();
  EXPECT_NE(SocketPort::listeningOnTcpPort(port), nullptr);
}

}  // namespace
}  // namespace sorvane::test
