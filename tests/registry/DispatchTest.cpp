#include <algorithm>
#include <string>
#include <vector>

#include "registry/CommandServer.h"
#include "registry/Dispatch.h"

namespace sorvane::test {
namespace {

// The rules in their order, as requests that each fits one of them when sent alone. The texts are
// the protocol's own, so the table under test is not read to make them.
struct Selector {
  std::vector<std::string> keys;
  std::string action;
};

const std::vector<Selector>& selectorsInOrder() {
  static const std::vector<Selector> selectors = {
      {{"reconnectPort"}, ""},  {{"findPort"}, ""},
      {{"acceptPort"}, ""},     {{"terminate"}, ""},
      {{}, "restart"},          {{"newPort", "portHost", "portName", "portType"}, ""},
      {{}, "needsRefresh"},     {{}, "setAlertState"},
      {{}, "setDatabaseState"}, {{}, "databaseStates"},
      {{}, "watchPortChanges"}, {{}, "didPortsChange"},
      {{}, "changeTimestamp"},  {{}, "sorvexecConnectHost"},
      {{}, "hostInfo"},         {{}, "hostList"},
      {{}, "awaitPortChanges"}, {{}, "portChanges"},
      {{}, "forgetPort"},       {{}, "continuity"},
      {{}, "anything else"},
  };
  return selectors;
}

// The request of two selectors; nothing when both want an action, which a request has but once.
std::optional<Message> requestOf(const Selector& first, const Selector& second) {
  if (!first.action.empty() && !second.action.empty() && first.action != second.action) {
    return std::nullopt;
  }
  Message request;
  // The later rule's keys come first: the order of the keys decides nothing.
  for (const Selector* selector : {&second, &first}) {
    for (const std::string& key : selector->keys) {
      request.setText(key, "x");
    }
    if (!selector->action.empty()) {
      request.setText("action", selector->action);
    }
  }
  return request;
}

std::size_t indexOfRule(const Message& request) {
  return static_cast<std::size_t>(&ruleFor(request) - dispatchRules().data());
}

/// The index of the rule whose first key, or whose action, is this.
std::size_t ruleOf(std::string_view word) {
  const auto& selectors = selectorsInOrder();
  const auto found = std::find_if(selectors.begin(), selectors.end(), [&](const Selector& each) {
    return word == (each.keys.empty() ? each.action : each.keys.front());
  });
  EXPECT_NE(found, selectors.end()) << word;
  return static_cast<std::size_t>(found - selectors.begin());
}

TEST(Dispatch, EachSelectorAloneReachesItsRule) {
  ASSERT_EQ(dispatchRules().size(), selectorsInOrder().size());
  for (std::size_t rule = 0; rule < selectorsInOrder().size(); ++rule) {
    const Selector& selector = selectorsInOrder()[rule];
    EXPECT_EQ(indexOfRule(*requestOf(selector, selector)), rule);
  }
}

TEST(Dispatch, OfTwoSelectorsInOneRequestTheEarlierRuleWins) {
  int conflicts = 0;
  for (std::size_t earlier = 0; earlier < selectorsInOrder().size(); ++earlier) {
    for (std::size_t later = earlier + 1; later < selectorsInOrder().size(); ++later) {
      const auto request = requestOf(selectorsInOrder()[earlier], selectorsInOrder()[later]);
      if (request) {
        EXPECT_EQ(indexOfRule(*request), earlier) << later;
        ++conflicts;
      }
    }
  }
  EXPECT_GT(conflicts, 0);
}

TEST(Dispatch, ARequestWithEveryKeyIsAReconnection) {
  Message request;
  for (const Selector& selector : selectorsInOrder()) {
    for (const std::string& key : selector.keys) {
      request.setText(key, "");
    }
  }
  EXPECT_EQ(indexOfRule(request), ruleOf("reconnectPort"));
}

TEST(Dispatch, KeysCountWhateverTheirValues) {
  Message request;
  request.setData("findPort", "");
  EXPECT_EQ(indexOfRule(request), ruleOf("findPort"));
  request.setData("findPort", "\xff");
  EXPECT_EQ(indexOfRule(request), ruleOf("findPort"));
}

TEST(Dispatch, ActionsCountInAnyLetterCaseAndKeysInTheirOwnAlone) {
  EXPECT_EQ(indexOfRule(Message({{"action", "DATABASESTATES"}})), ruleOf("databaseStates"));
  EXPECT_EQ(indexOfRule(Message({{"FINDPORT", ""}})), ruleOf("anything else"));
  EXPECT_EQ(indexOfRule(Message({{"Action", "restart"}})), ruleOf("anything else"));
}

TEST(Dispatch, NewPortWithoutOneOfItsKeysGoesOnToTheInfoServer) {
  const char* const keys[] = {"newPort", "portHost", "portName", "portType"};
  for (const char* missing : keys) {
    Message request;
    for (const char* key : keys) {
      if (key != missing) {
        request.setText(key, "x");
      }
    }
    EXPECT_EQ(indexOfRule(request), ruleOf("anything else")) << missing;
    request.setText("action", "hostList");
    EXPECT_EQ(indexOfRule(request), ruleOf("hostList")) << missing;
  }
}

TEST(Dispatch, AnActionOfTerminateIsNoTermination) {
  EXPECT_EQ(indexOfRule(Message({{"action", "terminate"}})), ruleOf("anything else"));
  EXPECT_EQ(indexOfRule(Message({{"restart", ""}})), ruleOf("anything else"));
}

class RemoteConnection : public InProcessConnection {
  [[nodiscard]] bool isFromThisMachine() const override { return false; }
};

TEST(Reserved, AreTheEffectsThatTheSettingsKeepForThisMachine) {
  Registry registry;
  const Continuity continuity;
  const Message request;
  const InProcessConnection local;
  const RemoteConnection remote;
  const ServerServices services{.sorvaneVersion = nullptr, .platformName = nullptr};
  ByteBuffer buffer;
  Notes notes;
  const auto reserved = [&](const NetConnection& sender, bool control, bool registration) {
    HostFacts host;
    host.takesRemoteControl = control;
    host.takesRemoteRegistration = registration;
    const CommandContext context{registry, continuity, request, sender, MessageWriter(buffer),
                                 host,     services,   false,   notes};
    std::string effects;
    for (const Effect effect : {Effect::reads, Effect::registers, Effect::endsProcess}) {
      effects += isReservedFrom(context, effect) ? 'x' : '-';
    }
    return effects;
  };
  EXPECT_EQ(reserved(remote, true, true), "---");
  EXPECT_EQ(reserved(remote, false, true), "--x");
  EXPECT_EQ(reserved(remote, true, false), "-x-");
  EXPECT_EQ(reserved(remote, false, false), "-xx");
  EXPECT_EQ(reserved(local, false, false), "---");
}

TEST(HostFacts, KeepNothingForThisMachineUnlessTheyAreTold) {
  const HostFacts host;
  EXPECT_FALSE(host.hasOnlyLoopbackAddress);
  EXPECT_TRUE(host.takesRemoteControl);
  EXPECT_TRUE(host.takesRemoteRegistration);
  EXPECT_EQ(host.basePort, 0);
}

TEST(Notes, AreThereWithALineForTheLogOrAWarning) {
  Notes notes;
  EXPECT_FALSE(notes.any());
  notes.warning = Warning::remoteUser;
  EXPECT_TRUE(notes.any());
  Notes ofALine;
  ofALine.logLine = [](const Message&, const HostFacts&) { return std::string("a line"); };
  EXPECT_TRUE(ofALine.any());
}

class DispatchCommand : public CommandTest {};

TEST_F(DispatchCommand, WhatNoRuleTakesIsNotRecognised) {
  Peer peer(server_);
  EXPECT_EQ(peer.action("get_userpreferences"), "(nil)");
  EXPECT_EQ(server_.lastKind, Outcome::Kind::notRecognised);
  EXPECT_EQ(peer.answer({}), "(nil)");
  EXPECT_EQ(server_.lastKind, Outcome::Kind::notRecognised);
  EXPECT_TRUE(server_.lastMayWait);
}

TEST_F(DispatchCommand, ASenderWithoutARecordRaises) {
  InProcessConnection stranger;
  for (const char* action : {"watchPortChanges", "didPortsChange"}) {
    EXPECT_THROW((void)deliverInProcess(server_, Message({{"action", action}}), stranger),
                 NSException);
  }
  EXPECT_THROW((void)deliverInProcess(server_, Message({{"acceptPort", ""}}), stranger),
               NSException);
}

}  // namespace
}  // namespace sorvane::test
