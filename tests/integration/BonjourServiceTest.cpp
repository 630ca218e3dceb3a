// Services on a network of two hosts: how they are found, named, lost and found again.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <linux/close_range.h>
#include <unistd.h>

#include <filesystem>
#include <sstream>
#include <string>
#include <vector>

#include "integration/AvahiHost.h"
#include "support/ConsoleLines.h"

namespace sorvane::test {
namespace {

constexpr const char* kType = "_sorvane._tcp";
constexpr const char* kPeer = SORVANE_BINARY_DIR "/tests/programs/bonjour_peer";

/// The descriptors behind standard error that a program inherits which this process starts.
std::vector<int> inheritedDescriptors(pid_t process) {
  std::vector<int> inherited;
  const std::filesystem::path folder = "/proc/" + std::to_string(process) + "/fdinfo";
  for (const auto& entry : std::filesystem::directory_iterator(folder)) {
    const int number = std::stoi(entry.path().filename());
    std::istringstream lines(readFile(entry.path()));
    std::string key;
    while (lines >> key && key != "flags:") {
    }
    unsigned flags = 0;
    lines >> std::oct >> flags;
    if (number > STDERR_FILENO && (flags & O_CLOEXEC) == 0) {
      inherited.push_back(number);
    }
  }
  return inherited;
}

class BonjourService : public ::testing::Test {
 protected:
  void SetUp() override {
    if (const std::string why = whyNoOwnNetwork(); !why.empty()) {
      GTEST_SKIP() << why;
    }
  }

  /// A cable between two hosts, and nothing else yet.
  struct Network {
    explicit Network(const std::string& nameOfA = "alpha", const std::string& nameOfB = "beta")
        : a(nameOfA), b(nameOfB) {
      connectByCable(a.network(), "198.51.100.1/24", b.network(), "198.51.100.2/24");
    }
    AvahiHost a;
    AvahiHost b;
  };

  static std::unique_ptr<Program> publish(const AvahiHost& host, const std::string& name,
                                          const std::string& type = kType,
                                          const std::string& port = "20221") {
    return host.start(kPeer, {"publish", name, type, port});
  }
  static std::unique_ptr<Program> browse(const AvahiHost& host, const std::string& type = kType) {
    return host.start(kPeer, {"browse", type});
  }
};

TEST_F(BonjourService, IsFoundByAnotherHostWithItsAddressAndPort) {
  Network network;
  network.a.startDaemons();
  network.b.startDaemons();
  const auto finder = browse(network.b);
  const auto publisher = publish(network.a, "one");
  EXPECT_TRUE(publisher->prints("published one\n")) << publisher->errors();
  EXPECT_TRUE(finder->prints("one 198.51.100.1 20221\n")) << finder->errors();
  EXPECT_EQ(publisher->errors(), "");
}

TEST_F(BonjourService, OfAHostWithSeveralAddressesHasThemAll) {
  Network network;
  network.a.network().run("ip", {"addr", "add", "198.51.100.7/24", "dev", "eth0"});
  network.a.network().run("ip", {"addr", "add", "203.0.113.1/24", "dev", "eth0"});
  network.a.startDaemons();
  network.b.startDaemons();
  const auto finder = browse(network.b);
  const auto publisher = publish(network.a, "one");
  EXPECT_TRUE(finder->prints("one 198.51.100.1 20221\n")) << publisher->errors();
  EXPECT_TRUE(finder->prints("one 198.51.100.7 20221\n")) << finder->output();
  EXPECT_TRUE(finder->prints("one 203.0.113.1 20221\n")) << finder->output();
}

TEST_F(BonjourService, IsFoundAtAnAddressThatItsHostGetsLater) {
  Network network;
  network.a.startDaemons();
  network.b.startDaemons();
  const auto finder = browse(network.b);
  const auto publisher = publish(network.a, "one");
  ASSERT_TRUE(finder->prints("one 198.51.100.1 20221\n")) << publisher->errors();
  network.a.network().run("ip", {"addr", "add", "203.0.113.1/24", "dev", "eth0"});
  EXPECT_TRUE(finder->prints("one 203.0.113.1 20221\n")) << finder->output();
}

TEST_F(BonjourService, LeavesNoDescriptorToTheProgramsThatItsProcessStarts) {
  Network network;
  network.a.startDaemons();
  const auto enter = [inside = network.a.inside()] {
    inside();
    close_range(3, ~0U, CLOSE_RANGE_CLOEXEC);  // what it inherits itself does not count
  };
  Program publisher(kPeer, {"publish", "one", kType, "20221"}, {"", enter});
  ASSERT_TRUE(publisher.prints("published one\n")) << publisher.errors();
  EXPECT_EQ(inheritedDescriptors(publisher.process()), std::vector<int>{});
}

TEST_F(BonjourService, WithoutANameHasThatOfItsHost) {
  Network network;
  network.a.startDaemons();
  const auto publisher = publish(network.a, "");
  EXPECT_TRUE(publisher->prints("published alpha\n")) << publisher->errors();
}

TEST_F(BonjourService, IsRemovedWhenItsProcessEnds) {
  Network network;
  network.a.startDaemons();
  network.b.startDaemons();
  const auto finder = browse(network.b);
  auto publisher = publish(network.a, "one");
  ASSERT_TRUE(finder->prints("found one\n")) << publisher->errors();
  publisher.reset();
  EXPECT_TRUE(finder->prints("removed one\n"));
}

TEST_F(BonjourService, TakesAnotherNameWhenItsOwnIsTakenOnTheNetwork) {
  Network network;
  network.a.startDaemons();
  network.b.startDaemons();
  const auto first = publish(network.a, "one");
  ASSERT_TRUE(first->prints("published one\n"));
  const auto second = publish(network.b, "one");
  EXPECT_TRUE(second->prints("published one (2)\n")) << second->errors();
  const auto finder = browse(network.a);
  EXPECT_TRUE(finder->prints("one 198.51.100.1 20221\n"));
  EXPECT_TRUE(finder->prints("one (2) 198.51.100.2 20221\n"));
  EXPECT_TRUE(second->complains("the name \"one\" is taken; published as \"one (2)\""));
}

TEST_F(BonjourService, TakesAnotherNameWhenItsOwnIsTakenOnTheHost) {
  Network network;
  network.a.startDaemons();
  const auto first = publish(network.a, "one");
  ASSERT_TRUE(first->prints("published one\n"));
  const auto second = publish(network.a, "one", kType, "20222");
  EXPECT_TRUE(second->prints("published one (2)\n")) << second->errors();
  const auto third = publish(network.a, "one", kType, "20223");
  EXPECT_TRUE(third->prints("published one (3)\n")) << third->errors();
}

TEST_F(BonjourService, OfTwoHostsWithOneNameHasTwoNames) {
  Network network("same", "same");
  network.a.startDaemons();
  network.b.startDaemons();
  const auto first = publish(network.a, "");
  const auto second = publish(network.b, "");
  ASSERT_TRUE(first->prints("published ")) << first->errors();
  ASSERT_TRUE(second->prints("published ")) << second->errors();
  EXPECT_NE(first->output(), second->output());
}

TEST_F(BonjourService, IsPublishedAsSoonAsAvahiComes) {
  Network network;
  network.a.startBus();
  const auto publisher = publish(network.a, "one");
  ASSERT_TRUE(publisher->complains("Bonjour: Avahi cannot be reached"));
  network.a.startAvahi();
  EXPECT_TRUE(publisher->prints("published one\n")) << publisher->errors();
}

TEST_F(BonjourService, IsPublishedOnceDBusComes) {
  Network network;
  const auto publisher = publish(network.a, "one");
  ASSERT_TRUE(publisher->complains("Bonjour: Avahi cannot be reached"));
  network.a.startDaemons();
  EXPECT_TRUE(publisher->prints("published one\n")) << publisher->errors();
  EXPECT_EQ(timesIn(publisher->errors(), "Bonjour:"), 1);
}

TEST_F(BonjourService, IsBackAfterAvahiWasRestarted) {
  Network network;
  network.a.startDaemons();
  network.b.startDaemons();
  const auto finder = browse(network.b);
  const auto publisher = publish(network.a, "one");
  ASSERT_TRUE(publisher->prints("published one\n"));
  ASSERT_TRUE(finder->prints("found one\n")) << publisher->errors();
  network.a.stopAvahi();
  ASSERT_TRUE(finder->prints("removed one\n"));
  network.a.startAvahi();
  EXPECT_TRUE(finder->prints("found one\n", 2)) << publisher->errors();
  EXPECT_TRUE(publisher->prints("published one\n", 2));
  EXPECT_EQ(timesIn(publisher->errors(), "Bonjour:"), 1) << publisher->errors();
}

TEST_F(BonjourService, IsBackAfterDBusWasRestarted) {
  Network network;
  network.a.startDaemons();
  const auto publisher = publish(network.a, "one");
  ASSERT_TRUE(publisher->prints("published one\n")) << publisher->errors();
  network.a.stopBus();
  network.a.stopAvahi();
  network.a.startDaemons();
  EXPECT_TRUE(publisher->prints("published one\n", 2)) << publisher->errors();
}

TEST_F(BonjourService, IsFoundAgainByABrowserWhoseAvahiWasRestarted) {
  Network network;
  network.a.startDaemons();
  network.b.startDaemons();
  const auto publisher = publish(network.a, "one");
  const auto finder = browse(network.b);
  ASSERT_TRUE(finder->prints("one 198.51.100.1 20221\n")) << finder->errors();
  network.b.stopAvahi();
  ASSERT_TRUE(finder->prints("removed one\n"));
  network.b.startAvahi();
  EXPECT_TRUE(finder->prints("one 198.51.100.1 20221\n", 2)) << finder->errors();
}

TEST_F(BonjourService, ThatMakesNoSenseIsNotPublished) {
  Network network;
  network.a.startDaemons();
  const auto wrongType = publish(network.a, "one", "sorvane");
  const auto wrongPort = publish(network.a, "one", kType, "65536");
  const auto longName = publish(network.a, std::string(64, 'x'));
  EXPECT_TRUE(wrongType->prints("not published: ")) << wrongType->errors();
  EXPECT_TRUE(wrongPort->prints("not published: ")) << wrongPort->errors();
  EXPECT_TRUE(longName->prints("not published: ")) << longName->errors();
  const auto finder = browse(network.a, "sorvane");
  EXPECT_TRUE(finder->prints("no search: ")) << finder->errors();
}

}  // namespace
}  // namespace sorvane::test
