// Browsing: switching it on and off, refreshing, and what the browser reports.
#include "ControllerFixture.h"

namespace sorvane::test {
namespace {

class Browsing : public ControllerTest {
 protected:
  class OtherServiceDelegate : public NetServiceDelegate {};

  /// The addresses of a service become known; its delegate is told if it still has one.
  static void resolveIfAsked(const std::shared_ptr<ScriptedNetService>& service,
                             const std::vector<std::string>& addresses) {
    if (service->delegate() != nullptr) {
      resolve(service, addresses);
    }
  }
  [[nodiscard]] std::size_t searches() const { return network.browser->searches.size(); }
};

TEST_F(Browsing, IsOffAtFirst) {
  EXPECT_FALSE(controller.isBrowsing());
  EXPECT_EQ(searches(), 0U);
}

TEST_F(Browsing, SearchesForItsTypeInTheDefaultDomains) {
  controller.activateBrowsing(true);
  EXPECT_TRUE(controller.isBrowsing());
  const ScriptedNetServiceBrowser::Search expected{"_sorvane._tcp", ""};
  EXPECT_EQ(network.browser->searches, std::vector{expected});
  EXPECT_EQ(delegate.calls, 0);
}

TEST_F(Browsing, SwitchedOnTwiceSearchesOnceAndSilently) {
  controller.activateBrowsing(true);
  controller.activateBrowsing(true);
  EXPECT_EQ(searches(), 1U);
  EXPECT_TRUE(lines().empty());
}

TEST_F(Browsing, SwitchedOffWhileOffDoesNothing) {
  controller.activateBrowsing(false);
  EXPECT_EQ(network.browser->timesStopped, 0);
  EXPECT_EQ(delegate.calls, 0);
}

TEST_F(Browsing, SwitchedOffStopsEmptiesTheListAndTells) {
  controller.activateBrowsing(true);
  found("one", {"10.0.0.1"});
  controller.activateBrowsing(false);
  EXPECT_FALSE(controller.isBrowsing());
  EXPECT_EQ(network.browser->timesStopped, 1);
  EXPECT_EQ(records(), Texts{});
  EXPECT_EQ(delegate.calls, 2);
  EXPECT_EQ(delegate.recordsAtLastCall, 0U);
}

TEST_F(Browsing, StartsWithStartBrowsing) {
  controller.startBrowsing();
  EXPECT_TRUE(controller.isBrowsing());
  EXPECT_EQ(searches(), 1U);
}

TEST_F(Browsing, StartedTwiceCostsAConsoleLine) {
  controller.startBrowsing();
  controller.startBrowsing();
  EXPECT_EQ(searches(), 1U);
  EXPECT_EQ(lines(), Texts{"Browing already started!"});
}

TEST_F(Browsing, RefreshedWhileOffDoesNothing) {
  controller.refreshBrowsing();
  network.runLoop().turn();
  EXPECT_EQ(searches(), 0U);
  EXPECT_EQ(network.browser->timesStopped, 0);
  EXPECT_EQ(delegate.calls, 0);
}

TEST_F(Browsing, RefreshedTellsOfTheEmptyListAtOnceAndSearchesOnTheNextPass) {
  controller.activateBrowsing(true);
  found("one", {"10.0.0.1"});
  delegate.calls = 0;
  controller.refreshBrowsing();
  EXPECT_EQ(delegate.calls, 1);
  EXPECT_EQ(delegate.recordsAtLastCall, 0U);
  EXPECT_FALSE(controller.isBrowsing());
  EXPECT_EQ(searches(), 1U);
  network.runLoop().turn();
  EXPECT_TRUE(controller.isBrowsing());
  EXPECT_EQ(searches(), 2U);
}

TEST_F(Browsing, SwitchedOnBeforeTheRefreshComesRoundIsReportedAsStarted) {
  controller.activateBrowsing(true);
  controller.refreshBrowsing();
  controller.activateBrowsing(true);
  network.runLoop().turn();
  EXPECT_EQ(searches(), 2U);
  EXPECT_EQ(lines(), Texts{"Browing already started!"});
}

TEST_F(Browsing, OfAControllerThatIsGoneIsNotRefreshed) {
  {
    ARendezvousController other("", "_sorvane._tcp", kPort, network);
    other.activateBrowsing(true);
    other.refreshBrowsing();
  }
  network.runLoop().turn();
  EXPECT_TRUE(lines().empty());
}

TEST_F(Browsing, ThatFailsIsReportedAndStaysOn) {
  controller.activateBrowsing(true);
  browserDelegate().netServiceBrowserDidNotSearch(*network.browser, "no");
  EXPECT_TRUE(controller.isBrowsing());
  EXPECT_EQ(lines(), Texts{"Unable to search."});
  EXPECT_EQ(delegate.calls, 0);
}

TEST_F(Browsing, ThatEndsByItselfEmptiesTheListAndTells) {
  controller.activateBrowsing(true);
  found("one", {"10.0.0.1"});
  browserDelegate().netServiceBrowserDidStopSearch(*network.browser);
  EXPECT_EQ(records(), Texts{});
  EXPECT_EQ(delegate.calls, 2);
  EXPECT_TRUE(controller.isBrowsing());
}

TEST_F(Browsing, IsNotConcernedByTheEndOfAnotherBrowser) {
  controller.activateBrowsing(true);
  found("one", {"10.0.0.1"});
  ScriptedNetServiceBrowser another;
  browserDelegate().netServiceBrowserDidStopSearch(another);
  EXPECT_EQ(records().size(), 1U);
  EXPECT_EQ(delegate.calls, 1);
}

TEST_F(Browsing, ResolvesWhatIsFound) {
  controller.activateBrowsing(true);
  const auto service = network.browser->find("one");
  EXPECT_EQ(service->timesResolved, 1);
  EXPECT_NE(service->delegate(), nullptr);
  EXPECT_EQ(records(), Texts{});
  EXPECT_EQ(delegate.calls, 0);
}

TEST_F(Browsing, IgnoresTheReportsThatChangeNothing) {
  controller.activateBrowsing(true);
  const auto service = network.browser->find("one");
  browserDelegate().netServiceBrowserWillSearch(*network.browser);
  browserDelegate().netServiceBrowserDidFindDomain(*network.browser, "example.", false);
  browserDelegate().netServiceBrowserDidRemoveDomain(*network.browser, "example.", false);
  service->delegate()->netServiceWillResolve(*service);
  service->delegate()->netServiceDidNotResolve(*service, "no");
  EXPECT_EQ(delegate.calls, 0);
  EXPECT_TRUE(lines().empty());
}

TEST_F(Browsing, SwitchedOffAddsNoRecordOfAServiceThatResolvesLater) {
  controller.activateBrowsing(true);
  const auto late = network.browser->find("late");
  controller.activateBrowsing(false);
  resolveIfAsked(late, {"10.0.0.1"});
  EXPECT_EQ(records(), Texts{});
  controller.activateBrowsing(true);
  resolveIfAsked(late, {"10.0.0.1"});
  EXPECT_EQ(records(), Texts{}) << "it was found by a search that is over";
}

TEST_F(Browsing, SwitchedOffResolvesNoServiceThatIsFoundLater) {
  controller.activateBrowsing(true);
  controller.activateBrowsing(false);
  const auto late = network.browser->find("late");
  EXPECT_EQ(late->timesResolved, 0);
  EXPECT_EQ(late->delegate(), nullptr);
}

TEST_F(Browsing, SwitchedOffByTheDelegateAddsNoFurtherRecord) {
  class Impatient : public ARendezvousDelegate {
    void discoveredServicesDidChange(ARendezvousController& sender) override {
      sender.activateBrowsing(false);
    }
  };
  Impatient impatient;
  controller.setDelegate(&impatient);
  controller.activateBrowsing(true);
  const auto service = found("one", {"10.0.0.1", "10.0.0.2"});
  EXPECT_EQ(records(), Texts{});
}

TEST_F(Browsing, AddsNoRecordOfAServiceThatResolvesAfterItIsGone) {
  controller.activateBrowsing(true);
  const auto service = network.browser->find("one");
  removed(service);
  resolveIfAsked(service, {"10.0.0.1"});
  EXPECT_EQ(records(), Texts{});
}

TEST_F(Browsing, EndsAsDelegateWithTheController) {
  std::shared_ptr<ScriptedNetService> found;
  std::shared_ptr<ScriptedNetService> othersByNow;
  OtherServiceDelegate another;
  {
    ARendezvousController other("", "_sorvane._tcp", kPort, network);
    other.activateBrowsing(true);
    found = network.browser->find("one");
    othersByNow = network.browser->find("two");
    othersByNow->setDelegate(&another);
    EXPECT_NE(found->delegate(), nullptr);
  }
  EXPECT_EQ(found->delegate(), nullptr);
  EXPECT_EQ(othersByNow->delegate(), &another);
}

TEST_F(Browsing, EndsWithTheController) {
  // The browser outlives its controller here, to be looked at.
  class KeptBrowser : public ScriptedNetServiceBrowser {
   public:
    explicit KeptBrowser(int& stops) : stops_(stops) {}
    void stop() override { ++stops_; }

   private:
    int& stops_;
  };
  class Network : public ScriptedServiceDiscovery {
   public:
    std::unique_ptr<NetServiceBrowser> makeBrowser() override {
      return std::make_unique<KeptBrowser>(stops);
    }
    int stops = 0;
  };
  Network own;
  { ARendezvousController other("", "_sorvane._tcp", kPort, own); }
  EXPECT_EQ(own.stops, 1);
}

}  // namespace
}  // namespace sorvane::test
