// How much a client reads, and how long.
#include <atomic>
#include <chrono>
#include <string>

#include "platform/NetConnection.h"
#include "platform/wire/Frame.h"
#include "support/ScriptedPeer.h"
#include "support/WaitUntil.h"
#include "support/WireBytes.h"

namespace sorvane::test {
namespace {

using namespace std::chrono_literals;

constexpr std::size_t kBlockBytes = std::size_t{1} << 20;
/// More than the systems of both sides hold of a connection.
constexpr std::size_t kRequestBytes = std::size_t{48} << 20;
constexpr std::size_t kMostInTheSystem = std::size_t{32} << 20;

/// Sends bytes without end, or until the client closes, and reads none.
class Fountain {
 public:
  Fountain()
      : peer_([this](PeerConnection& client) {
          const std::string block(kBlockBytes, 'x');
          client.send(frameWith("SV", 1, 1, kMaximumReplyBytes, ""));
          while (client.send(block)) {
            sent_ += block.size();
          }
        }) {}

  [[nodiscard]] int port() const { return peer_.port(); }
  [[nodiscard]] std::size_t sent() const { return sent_; }
  [[nodiscard]] bool isOver() const { return peer_.finishes(1); }

 private:
  std::atomic<std::size_t> sent_ = 0;
  ScriptedPeer peer_;
};

TEST(Fountain, EndsASendAtTheTimeLimitAndIsReadUpTo64MiBOnly) {
  const Fountain fountain;
  NetConnection connection;
  connection.setTimeLimits(kPatience, 2s);
  ASSERT_TRUE(connection.connectToPort("127.0.0.1", fountain.port()));
  Message request;
  request.setData("data", std::string(kRequestBytes, 'y'));
  EXPECT_FALSE(connection.sendRequest(request));
  EXPECT_NE(connection.lastError().find("did not take the request in time"), std::string::npos)
      << connection.lastError();
  ASSERT_TRUE(fountain.isOver());
  EXPECT_LT(fountain.sent(), kMaximumReplyBytes + kMostInTheSystem);
}

}  // namespace
}  // namespace sorvane::test
