// A stream of requests in any pieces, against the server's connection. The first byte chooses the
// pieces. The replies must be those that a plain reading of docs/protocol.md gives, whatever the
// pieces. The stream is also read as the body of one frame.
#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <chrono>
#include <memory>
#include <optional>
#include <string>

#include "platform/Console.h"
#include "platform/Descriptor.h"
#include "platform/PropertyList.h"
#include "platform/server/ServingLoop.h"
#include "support/Pieces.h"
#include "support/ReferenceFrames.h"
#include "support/Require.h"
#include "support/WireBytes.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;
using namespace std::chrono_literals;

constexpr std::size_t kMostBodyBytes = 1000;
const auto sharedText = std::make_shared<const std::string>(MessageWriter::kLeastSharedBytes, 's');

/// The first key of a request says how it is delivered, and the first letter of the second what
/// the reply is. Both need not be there.
enum class Way { atOnce, waits, waitsForDisk, raises };
enum class Answer { entries, request, none, shared };

Way wayOf(const auto& entries) {
  const std::string_view key = entries.empty() ? std::string_view() : entries[0].key;
  return key == "w"   ? Way::waits
         : key == "d" ? Way::waitsForDisk
         : key == "r" ? Way::raises
                      : Way::atOnce;
}

Answer answerOf(const auto& entries) {
  const std::string_view key = entries.size() < 2 ? std::string_view() : entries[1].key;
  return key.starts_with('q')   ? Answer::request
         : key.starts_with('n') ? Answer::none
         : key.starts_with('s') ? Answer::shared
                                : Answer::entries;
}

class Delegate : public NetConnectionDelegate {
 public:
  void startCommunication(NetConnection& /*connection*/) override { ++open; }
  void endCommunication(NetConnection& /*connection*/) override { --open; }
  std::optional<Reply> deliverWithoutWaiting(const Message& request, NetConnection& sender,
                                             Turn& /*turn*/) override {
    return wayOf(request.entries()) == Way::atOnce ? std::optional(answer(request, sender))
                                                   : std::nullopt;
  }
  Delivery deliverWithoutDisk(const Message& request, NetConnection& sender) override {
    if (wayOf(request.entries()) == Way::waitsForDisk) {
      return {Disk::log, [&sender](const Message& same) { return answer(same, sender); }};
    }
    return deliverCommunication(request, sender);
  }
  Reply deliverCommunication(const Message& request, NetConnection& sender) override {
    if (wayOf(request.entries()) == Way::raises) {
      throw NSException("as the request says");
    }
    return answer(request, sender);
  }

  int open = 0;

 private:
  static Reply answer(const Message& request, NetConnection& sender) {
    MessageWriter reply = sender.replyWriter();
    switch (answerOf(request.entries())) {
      case Answer::request:
        return Reply::request();
      case Answer::none:
        return Reply::none();
      case Answer::shared:
        reply.sharedText("text", sharedText);
        break;
      case Answer::entries:
        for (const MessageEntry& entry : request.entries()) {
          reply.data(entry.key, entry.value);
        }
    }
    return Reply::written();
  }
};

std::string expectedReply(const Entries& request) {
  const Answer answer = answerOf(request);
  if (wayOf(request) == Way::raises || answer == Answer::none) {
    return test::nilFrame();
  }
  return test::frameOfBody(
      bodyOf(answer == Answer::shared ? Entries{{"text", *sharedText + '\0'}} : request));
}

std::string expectedReplies(std::string_view stream) {
  std::string replies;
  while (true) {
    const ReferenceFrame frame = readReferenceFrame(stream, kMostBodyBytes);
    if (frame.kind != ReferenceFrame::Kind::dictionary) {
      return replies;
    }
    replies += expectedReply(frame.entries);
    stream.remove_prefix(frame.bytes);
  }
}

/// One server for all inputs. Its connections are socket pairs: what is sent has arrived.
class Server {
 public:
  std::string replies(Pieces pieces) {
    int ends[2];
    require(socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, ends) == 0,
            "the system has sockets");
    const Descriptor client(ends[0]);
    loop_.adopt(ends[1]);
    std::string replies;
    while (!pieces.atEnd() && context_.connections > 0) {
      const std::string_view piece = pieces.next();
      require(send(client.number(), piece.data(), piece.size(), MSG_NOSIGNAL) ==
                  static_cast<ssize_t>(piece.size()),
              "the server takes what comes");
      pollfd input{ends[1], POLLIN, 0};
      while (context_.connections > 0 && poll(&input, 1, 0) > 0) {
        take(client, replies);
        loop_.takeTurn(nullptr);
      }
    }
    shutdown(client.number(), SHUT_WR);
    while (context_.connections > 0) {
      take(client, replies);
      loop_.takeTurn(nullptr);
    }
    take(client, replies);
    require(delegate_.open == 0, "a connection ends once");
    require(context_.unfinishedInput.now() == 0, "no input is left over");
    require(context_.untakenReplies.bytes() == 0, "no reply is left over");
    return replies;
  }

 private:
  static void take(const Descriptor& client, std::string& replies) {
    char bytes[1 << 16];
    for (ssize_t count = 1; count > 0;) {
      count = recv(client.number(), bytes, sizeof bytes, 0);
      replies.append(bytes, static_cast<std::size_t>(std::max<ssize_t>(count, 0)));
    }
  }

  Delegate delegate_;
  WaitingThreads& threads_ = *new WaitingThreads(1);  // they live as long as the process
  ServerContext context_{delegate_, threads_,         kMostBodyBytes,        24h,
                         {},        ByteSum(1 << 30), UntakenTotal(1 << 30), 24h};
  ServingLoop loop_{context_};
};

void readAsBody(std::string_view bytes) {
  const std::unique_ptr<char[]> exact(new char[bytes.size()]);  // the sanitizer guards its end
  std::copy(bytes.begin(), bytes.end(), exact.get());
  Message message;
  const char* const fault = message.readBody({exact.get(), bytes.size()});
  const auto expected = readReferenceBody(bytes);
  require((fault == nullptr) == expected.has_value(), "a body is one by the rules of the protocol");
  require(entriesOf(message) == expected.value_or(Entries()), "the entries are those of the body");
  require(entriesOf(message.owned()) == entriesOf(message), "a copy has the same entries");
  const PropertyList described = PropertyList::parse(message.description());
  require(described.dictionary()->size() == message.entries().size(), "a message can be described");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static auto* const server = new Server;
  setConsoleSink([](std::string_view) {});
  if (size == 0) {
    return 0;
  }
  const std::string_view stream(reinterpret_cast<const char*>(data) + 1, size - 1);
  readAsBody(stream);
  require(server->replies(Pieces(stream, data[0])) == expectedReplies(stream),
          "the replies are those of the protocol");
  return 0;
}
