// What the name server has gone through: noted, handed on, and told.
#include <gtest/gtest.h>
#include <unistd.h>

#include <string>

#include "platform/RunningProgram.h"
#include "registry/CommandServer.h"
#include "registry/Continuity.h"
#include "registry/SecondsText.h"

namespace sorvane::test {
namespace {

using Figures = Continuity::Figures;

std::string whole(const KeptWriter& writer) { return writer.header() + std::string(writer.body()); }

std::string keptForm(const Continuity& continuity) {
  KeptWriter writer;
  continuity.keep(writer);
  return whole(writer);
}

std::string keptForm(const Figures& figures) {
  KeptWriter writer;
  writer.number(figures.upgrades);
  writer.number(figures.crashes);
  writer.number(figures.attempts);
  writer.text(figures.refused);
  return whole(writer);
}

void restore(Continuity& continuity, const std::string& description) {
  KeptReader reader(description);
  continuity.restore(reader);
  reader.end();
}

TEST(Continuity, CountsAttemptsAndWhatComesOfThem) {
  Continuity continuity;
  EXPECT_EQ(continuity.figures().attempts, 0U);
  EXPECT_EQ(continuity.figures().refused, "");
  continuity.noteUpgradeAttempt();
  continuity.noteRefused("a disk hangs");
  EXPECT_EQ(continuity.figures().attempts, 1U);
  EXPECT_EQ(continuity.figures().upgrades, 0U);
  EXPECT_EQ(continuity.figures().refused, "a disk hangs");
  continuity.noteUpgradeAttempt();
  EXPECT_EQ(continuity.figures().refused, "") << "nobody takes the reason for that of the next one";
  continuity.noteUpgraded();
  EXPECT_EQ(continuity.figures().attempts, 2U);
  EXPECT_EQ(continuity.figures().upgrades, 1U);
  EXPECT_EQ(continuity.figures().refused, "");
}

TEST(Continuity, KeepsAReasonShortAndReadableWhateverItIs) {
  Continuity continuity;
  continuity.noteRefused("line\nline\xff\t");
  EXPECT_EQ(continuity.figures().refused, "line\\x0aline\\xff\\x09");
  continuity.noteRefused(std::string(199, 'x') + "\xc3\xa9");
  EXPECT_EQ(continuity.figures().refused, std::string(199, 'x')) << "no half of a character";
  continuity.noteRefused(std::string(5000, 'x'));
  EXPECT_EQ(continuity.figures().refused, std::string(Continuity::kLongestReason, 'x'));
}

TEST(Continuity, IsHandedOnWhole) {
  Continuity before;
  restore(before, keptForm({3, 300, ~std::uint64_t{0}, "no"}));
  Continuity after;
  restore(after, keptForm(before));
  const Figures figures = after.figures();
  EXPECT_EQ(figures.upgrades, 3U);
  EXPECT_EQ(figures.crashes, 300U);
  EXPECT_EQ(figures.attempts, ~std::uint64_t{0});
  EXPECT_EQ(figures.refused, "no");
}

TEST(Continuity, TakesNothingOfADescriptionThatCannotBe) {
  const std::string longest(Continuity::kLongestReason, 'x');
  Continuity continuity;
  restore(continuity, keptForm({1, 2, 4, longest}));
  for (const std::string& refused : {longest + 'x', std::string("\xff"), std::string("a\nb")}) {
    EXPECT_THROW(restore(continuity, keptForm({9, 9, 9, refused})), KeptFault);
  }
  KeptWriter cut;
  cut.number(9);
  EXPECT_THROW(restore(continuity, whole(cut)), KeptFault);
  EXPECT_EQ(continuity.figures().upgrades, 1U);
  EXPECT_EQ(continuity.figures().refused, longest);
}

class ContinuityCommand : public CommandTest {};

TEST_F(ContinuityCommand, TellsTheRegistryAndWhatItHasGoneThrough) {
  Peer tool(server_);
  const auto begun = tool.sends({{"action", "continuity"}});
  ASSERT_TRUE(begun);
  EXPECT_EQ(keysOf(begun), "result instance upgrades crashes attempts refused begun process ");
  EXPECT_EQ(begun->text("result"), "succeed");
  EXPECT_EQ(begun->text("instance"), server_.registry.instance());
  EXPECT_EQ(begun->text("instance")->size(), 32U);
  for (const char* counter : {"upgrades", "crashes", "attempts"}) {
    EXPECT_EQ(begun->text(counter), "0") << counter;
  }
  EXPECT_EQ(begun->text("refused"), "");
  EXPECT_EQ(begun->text("begun"), SecondsText(programBegun()).view());
  EXPECT_EQ(begun->text("process"), std::to_string(getpid()));

  restore(server_.continuity, keptForm({11, 22, 33, "not now"}));
  EXPECT_EQ(tool.action("continuity", "upgrades"), "11");
  EXPECT_EQ(tool.action("continuity", "crashes"), "22");
  EXPECT_EQ(tool.action("continuity", "attempts"), "33");
  EXPECT_EQ(tool.action("continuity", "refused"), "not now");
}

TEST_F(ContinuityCommand, NeverWaitsAndMarksNobody) {
  Peer watcher(server_);
  (void)watcher.action("didPortsChange");
  Peer tool(server_);
  EXPECT_EQ(tool.action("continuity"), "succeed");
  EXPECT_FALSE(server_.lastMayWait);
  EXPECT_EQ(watcher.action("didPortsChange"), "NO");
}

}  // namespace
}  // namespace sorvane::test
