#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "sorvctl/Failure.h"
#include "sorvctl/PortPicture.h"
#include "support/WireBytes.h"
#include "tools/FakeNameServer.h"

namespace sorvctl {
namespace {

using sorvane::Message;
using sorvane::test::entry;
using test::rowOf;
using test::Texts;
using Next = PortPicture::Next;

Texts header(const std::string& more = "NO", const std::string& restart = "NO") {
  return {{"instance", "run"}, {"sequence", "7"}, {"more", more}, {"restart", restart}};
}

/// A reply with these rows.
Message replyOf(const Texts& begin, const std::vector<std::string>& rows) {
  std::string body = rowOf(begin);
  for (std::size_t index = 0; index < rows.size(); ++index) {
    body += entry(std::to_string(index), rows[index]);
  }
  Message reply;
  EXPECT_EQ(reply.readBody(body), nullptr);
  return reply.owned();
}

std::string named(const std::string& name) { return rowOf({{"name", name}, {"portNumber", "1"}}); }
std::string gone(const std::string& name) { return rowOf({{"name", name}, {"gone", "YES"}}); }

std::vector<std::string> namesOf(const PortPicture& picture) {
  std::vector<std::string> names;
  for (const Database& each : picture.databases()) {
    names.push_back(each.port.name);
  }
  return names;
}

using Names = std::vector<std::string>;

TEST(PortPicture, HasNamesAndTextsOfAnyKind) {
  PortPicture picture;
  const std::string name = "a|b:c d\xC3\xA4\n";
  EXPECT_EQ(picture.take(replyOf(header("NO", "YES"), {rowOf({{"name", name},
                                                              {"portNumber", "20222"},
                                                              {"portHost", "h:1"},
                                                              {"portHostAddress", "192.0.2.1"},
                                                              {"portType", "t|u"},
                                                              {"portStatus", "x:y|z"},
                                                              {"alertStatus", "p|q:r"},
                                                              {"alertStatusTimestamp", "12.500000"},
                                                              {"left", "YES"}})})),
            Next::complete);
  const std::vector<Database> databases = picture.databases();
  ASSERT_EQ(databases.size(), 1U);
  const Database& database = databases[0];
  EXPECT_EQ(database.port.name, name);
  EXPECT_EQ(database.port.number, "20222");
  EXPECT_EQ(database.port.host, "h:1");
  EXPECT_EQ(database.port.address, "192.0.2.1");
  EXPECT_EQ(database.port.type, "t|u");
  EXPECT_EQ(database.state, "x:y|z");
  EXPECT_EQ(database.alert, "p|q:r");
  EXPECT_EQ(database.alertTime, 12.5);
  EXPECT_TRUE(database.left);
}

TEST(PortPicture, TakesAStateThatIsNotToldForRunning) {
  PortPicture picture;
  (void)picture.take(replyOf(header(), {named("db1")}));
  ASSERT_EQ(picture.databases().size(), 1U);
  EXPECT_EQ(picture.databases()[0].state, "running");
  EXPECT_FALSE(picture.databases()[0].left);
}

TEST(PortPicture, FollowsTheRegistryByPages) {
  PortPicture picture;
  EXPECT_FALSE(picture.request().contains("instance")) << "nothing is known: everything is wanted";
  EXPECT_EQ(picture.take(replyOf(header("YES", "YES"), {named("b"), named("a")})), Next::askAgain);
  const Message next = picture.request();
  EXPECT_EQ(next.text("instance"), "run");
  EXPECT_EQ(next.text("since"), "7");
  EXPECT_EQ(picture.take(replyOf(
                header(), {rowOf({{"name", "a"}, {"portNumber", "9"}}), gone("b"), named("c")})),
            Next::complete);
  EXPECT_EQ(namesOf(picture), (Names{"a", "c"}));
  EXPECT_EQ(picture.databases()[0].port.number, "9") << "the later entry of a name holds";
  EXPECT_EQ(picture.take(replyOf(header(), {gone("unknown")})), Next::complete);
  EXPECT_EQ(picture.take(replyOf(header("NO", "YES"), {named("d")})), Next::complete);
  EXPECT_EQ(namesOf(picture), Names{"d"}) << "a restart forgets all";
}

TEST(PortPicture, LeavesOutWhatTheListsOfAServerLeaveOut) {
  PortPicture picture;
  (void)picture.take(replyOf(header(), {named("VN_nameserver"), named("VN_infoserver"),
                                        named("sorvexec"), named("Sorvexec"), named("db1")}));
  EXPECT_EQ(namesOf(picture), (Names{"Sorvexec", "db1"}));
}

TEST(PortPicture, OfAServerThatDoesNotTellIsLacking) {
  PortPicture picture;
  EXPECT_EQ(picture.take(Message()), Next::lacking);
}

/// What is wrong with a reply, in words.
std::string faultOf(const Message& reply, PictureBounds bounds = {}) {
  PortPicture picture(bounds);
  (void)picture.take(replyOf(header(), {named("known")}));
  try {
    (void)picture.take(reply);
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.status(), Status::saidNo);
    EXPECT_TRUE(picture.databases().empty());
    EXPECT_FALSE(picture.request().contains("since")) << "the next request is for everything";
    return failure.what();
  }
  return "nothing";
}

TEST(PortPicture, TellsWhatIsMalformed) {
  const std::string begin = "the server's reply to portChanges is malformed: ";
  EXPECT_EQ(faultOf(replyOf(header("YES"), {})), begin + "it promises more and tells nothing");
  EXPECT_EQ(faultOf(replyOf(header(), {rowOf({{"portNumber", "1"}})})),
            begin + "entry 0 has no name");
  EXPECT_EQ(faultOf(replyOf(header(), {named("a"), entry("name", "\xFF")})),
            begin + "entry 1 has no name");
  EXPECT_EQ(faultOf(replyOf(header(), {named("a").substr(0, 9)})).rfind(begin + "entry 0: ", 0),
            0U);
  EXPECT_EQ(faultOf(replyOf(header(), {""})), begin + "entry 0 has no name");
  EXPECT_EQ(faultOf(replyOf(header("perhaps"), {})), begin + "\"more\" is neither YES nor NO");
  EXPECT_EQ(faultOf(replyOf({{"instance", "run"}, {"sequence", "1"}, {"more", "NO"}}, {})),
            begin + "it has no \"restart\"");
  for (const std::string& sequence : {std::string("1x"), std::string(), std::string(65, '1')}) {
    EXPECT_EQ(
        faultOf(replyOf(
            {{"instance", "r"}, {"sequence", sequence}, {"more", "NO"}, {"restart", "NO"}}, {})),
        begin + "what to ask with next time makes no sense");
  }
}

TEST(PortPicture, HasBounds) {
  EXPECT_EQ(faultOf(replyOf(header(), {named("a"), named("b")}), {2, 1000}),
            "the server lists more than 2 databases");
  EXPECT_EQ(faultOf(replyOf(header(), {named("a"), gone("known"), named("b")}), {2, 1000}),
            "nothing");
  EXPECT_EQ(faultOf(replyOf(header(), {named(std::string(1000, 'x'))}), {2, 1000}),
            "the names and texts that the server tells have more than 1000 bytes");
}

TEST(PortPicture, EndsWithAServerThatTellsForEver) {
  PortPicture picture({1, 1000});
  const Message again = replyOf(header("YES"), {named("a")});
  std::size_t told = 0;
  try {
    while (told <= 20'000) {
      EXPECT_EQ(picture.take(again), Next::askAgain);
      ++told;
    }
    ADD_FAILURE() << "it does not end";
  } catch (const Failure& failure) {
    EXPECT_STREQ(failure.what(), "the server tells of changes without an end");
  }
  EXPECT_EQ(told, PortPicture::kMostToldBeyond + PortPicture::kMostToldForEachKept);
  // What is told in one go ends with the last page.
  for (std::size_t page = 0; page < 20'000; ++page) {
    ASSERT_EQ(picture.take(replyOf(header(), {named("a")})), Next::complete);
  }
}

}  // namespace
}  // namespace sorvctl
