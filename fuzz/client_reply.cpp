// A client whose server sends any bytes in any pieces. The first byte chooses the pieces, the
// second what the client asks and how the connection ends, the rest is what the server sends. The
// replies must be those that a plain reading of docs/protocol.md gives.
#include <charconv>
#include <string>

#include "platform/NetConnection.h"
#include "platform/Settings.h"
#include "support/ReferenceFrames.h"
#include "support/Require.h"
#include "support/ScriptedSocket.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;

constexpr std::size_t kMostBodyBytes = std::size_t{64} << 20;

/// What the second byte says.
struct Questions {
  explicit Questions(std::uint8_t byte)
      : count(byte & 7),
        asksForServer(count == 0),
        sendsEarly((byte & 8) != 0),
        endsByTimeout((byte & 16) != 0),
        sendFails((byte & 32) != 0),
        oneByOne((byte & 64) != 0) {}

  int count;
  bool asksForServer, sendsEarly, endsByTimeout, sendFails, oneByOne;
};

/// Takes the next reply, which must be the next frame of the stream. Returns false when there is
/// none.
bool takes(NetConnection& client, std::string_view& stream) {
  const std::optional<Message> reply = client.receiveReply();
  const ReferenceFrame frame = readReferenceFrame(stream, kMostBodyBytes);
  switch (frame.kind) {
    case ReferenceFrame::Kind::dictionary:
      require(reply && entriesOf(*reply) == frame.entries, "the reply is what the server sent");
      break;
    case ReferenceFrame::Kind::none:
      require(!reply && client.lastError().empty(), "a nil reply is no failure");
      break;
    case ReferenceFrame::Kind::part:
    case ReferenceFrame::Kind::fault:
      require(!reply && !client.lastError().empty(), "a failure has a reason");
      require(!client.isConnected(), "a failure ends the connection");
      require(client.wasClosedByPeer() ==
                  (frame.kind == ReferenceFrame::Kind::part && !peer.endsByTimeout),
              "the client knows who has ended the connection");
      return false;
  }
  stream.remove_prefix(frame.bytes);
  return true;
}

void exchanges(const Questions& questions, std::string_view stream) {
  NetConnection client;
  require(client.connectToPort("127.0.0.1", 1), "the script lets the client connect");
  if (questions.sendFails) {
    peer.failingSend = questions.count - 1;
  }
  int awaited = 0;
  bool goesOn = true;
  for (int i = 0; goesOn && i < questions.count; ++i) {
    goesOn = client.sendRequest({{"number", std::to_string(i)}});
    require(goesOn == client.lastError().empty(), "a request that fails has a reason");
    if (goesOn && questions.oneByOne) {
      goesOn = takes(client, stream);
    } else if (goesOn) {
      ++awaited;
    }
  }
  while (awaited > 0 && takes(client, stream)) {
    --awaited;
  }
  require(!client.receiveReply() && !client.lastError().empty(), "no reply comes unasked");
}

// The server that is asked for is at the port that the reply tells.
void asksForServer(std::string_view stream) {
  NetConnection client;
  const bool connected = client.connectToServer("db1", "127.0.0.1");
  const ReferenceFrame frame = readReferenceFrame(stream, kMostBodyBytes);
  std::optional<std::string> text;
  if (const std::string* const value = find(frame.entries, "portNumber")) {
    text = textOf(*value);
  }
  int port = 0;
  const std::string number = text.value_or("");
  const auto [end, error] = std::from_chars(number.data(), number.data() + number.size(), port);
  const bool isFound = error == std::errc() && end == number.data() + number.size() && port >= 1 &&
                       port <= 65535 && find(frame.entries, "notFound") == nullptr;
  require(connected == isFound, "a server is found if the reply has its port");
  require(connected == client.lastError().empty(), "a failure has a reason");
  require(!connected || peer.port == port, "the client connects to the port of the reply");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*words*/) {
  Settings settings;
  settings.hostName = "testhost";
  settings.address = "192.0.2.1";
  settings.ethernetAddress = "02:00:5e:10:00:07";
  Settings::replaceForTest(settings);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2) {
    return 0;
  }
  const std::string_view stream(reinterpret_cast<const char*>(data) + 2, size - 2);
  const Questions questions(data[1]);
  peer = PeerScript();
  peer.stream = Pieces(stream, data[0]);
  peer.sendsEarly = questions.sendsEarly;
  peer.endsByTimeout = questions.endsByTimeout;
  if (questions.asksForServer) {
    asksForServer(stream);
  } else {
    exchanges(questions, stream);
  }
  return 0;
}
