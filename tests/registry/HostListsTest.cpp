#include <gtest/gtest.h>

#include "platform/NSException.h"
#include "registry/HostLists.h"

namespace sorvane {
namespace {

using List = HostLists::List;

TEST(HostLists, DoNotExistAtFirst) {
  const HostLists hosts;
  EXPECT_FALSE(hosts.hostList.has_value());
  EXPECT_FALSE(hosts.alternateHostList.has_value());
  EXPECT_FALSE(hosts.hostNameString.has_value());
  EXPECT_EQ(hosts.joined(false), "");
  EXPECT_EQ(hosts.joined(true), "");
}

TEST(HostLists, CreatingOneDoesNotCreateTheOther) {
  HostLists hosts;
  hosts.createHostList();
  EXPECT_EQ(hosts.hostList, List());
  EXPECT_FALSE(hosts.alternateHostList.has_value());
  hosts.createBoth();
  EXPECT_FALSE(hosts.alternateHostList.has_value()) << "made together with the first or never";
}

TEST(HostLists, CreatingTwiceKeepsWhatIsListed) {
  HostLists hosts;
  hosts.createBoth();
  hosts.hostList->push_back("a@1");
  hosts.createBoth();
  hosts.createHostList();
  EXPECT_EQ(hosts.hostList, List{"a@1"});
}

TEST(HostLists, ConnectToAnEmptyListAppendsNothing) {
  HostLists hosts;
  hosts.connect("hostA", "10.0.0.1");
  EXPECT_EQ(hosts.hostList, List());
  EXPECT_EQ(hosts.alternateHostList, List());
  EXPECT_EQ(hosts.hostNameString, "hostA");
  hosts.connect("hostB", "10.0.0.1");
  EXPECT_EQ(hosts.hostNameString, "hostB");
}

TEST(HostLists, ConnectAppendsAKeyThatIsListedOnceMore) {
  HostLists hosts;
  hosts.hostList = List{"b@2", "a@1", "a@1"};
  hosts.connect("a", "1");
  EXPECT_EQ(hosts.hostList, (List{"b@2", "a@1", "a@1", "a@1"}));
  hosts.connect("A", "1");
  EXPECT_EQ(hosts.hostList->size(), 4U);
}

TEST(HostLists, TakeNoMoreKeysThanTheirBound) {
  EXPECT_EQ(HostLists::kMostHosts, 10000U);
  HostLists hosts;
  hosts.hostList = List{"a@1"};
  for (std::size_t count = 1; count < HostLists::kMostHosts; ++count) {
    hosts.connect("a", "1");
  }
  EXPECT_EQ(hosts.hostList->size(), HostLists::kMostHosts);
  EXPECT_THROW(hosts.connect("a", "1"), NSException);
  EXPECT_EQ(hosts.hostList->size(), HostLists::kMostHosts);
  hosts.connect("b", "1");
  EXPECT_EQ(hosts.hostNameString, "b");
}

TEST(HostLists, RemoveTakesTheFirstMatchAndItsNeighbourInTheOtherList) {
  HostLists hosts;
  hosts.hostList = List{"b@2", "a@1", "a@1"};
  hosts.alternateHostList = List{"x", "y", "z"};
  EXPECT_TRUE(hosts.remove("a@1"));
  EXPECT_EQ(hosts.hostList, (List{"b@2", "a@1"}));
  EXPECT_EQ(hosts.alternateHostList, (List{"x", "z"}));
}

TEST(HostLists, RemoveLeavesAnOtherListThatDoesNotReachSoFar) {
  HostLists hosts;
  hosts.hostList = List{"b@2", "a@1"};
  hosts.alternateHostList = List{"x"};
  EXPECT_TRUE(hosts.remove("a@1"));
  EXPECT_EQ(hosts.alternateHostList, List{"x"});
  hosts.alternateHostList.reset();
  EXPECT_TRUE(hosts.remove("b@2"));
  EXPECT_EQ(hosts.hostList, List());
}

TEST(HostLists, RemoveOfAnUnknownKeyRemovesNothing) {
  HostLists hosts;
  EXPECT_FALSE(hosts.remove("a@1"));
  hosts.hostList = List{"b@2"};
  EXPECT_FALSE(hosts.remove("a@1"));
  EXPECT_EQ(hosts.hostList, List{"b@2"});
}

TEST(HostLists, AreJoinedByBars) {
  HostLists hosts;
  hosts.hostList = List{"a@1", "b@2"};
  hosts.alternateHostList = List{"x@9"};
  EXPECT_EQ(hosts.joined(false), "a@1|b@2");
  EXPECT_EQ(hosts.joined(true), "x@9");
}

TEST(JoinedKey, PutsAnAtSignBetween) {
  EXPECT_EQ(joinedKey("db1", "hostA"), "db1@hostA");
  EXPECT_EQ(joinedKey("", ""), "@");
}

}  // namespace
}  // namespace sorvane
