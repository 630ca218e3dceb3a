#include "defaults/Launcher.h"

#include <fcntl.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <filesystem>
#include <stdexcept>

#include "platform/Settings.h"

namespace sorvane::test {
namespace {

// Notes each request in a file of its own before it is answered.
class Delegate : public NetConnectionDelegate {
 public:
  Delegate(std::filesystem::path folder, Launcher::Answer answer)
      : folder_(std::move(folder)), answer_(std::move(answer)) {}

  void startCommunication(NetConnection& /*connection*/) override {}
  void endCommunication(NetConnection& /*connection*/) override {}

  Reply deliverCommunication(const Message& request, NetConnection& sender) override {
    writeFile(folder_ / ("request" + std::to_string(count_++)), request.body());
    return answer_(request, sender);
  }

 private:
  std::filesystem::path folder_;
  Launcher::Answer answer_;
  int count_ = 0;
};

// Listens on a free port of 127.0.0.1, so that nobody else can reach it.
int listeningSocket(int& port) {
  const int listening = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t size = sizeof address;
  auto* const any = reinterpret_cast<sockaddr*>(&address);
  if (bind(listening, any, size) != 0 || listen(listening, 16) != 0 ||
      fcntl(listening, F_SETFL, O_NONBLOCK) != 0 || getsockname(listening, any, &size) != 0) {
    throw std::runtime_error("a launcher cannot listen");
  }
  port = ntohs(address.sin_port);
  return listening;
}

}  // namespace

Launcher::Launcher(std::string_view defaults) {
  writeFile(defaultsFile(), defaults);
  start([this](const Message& request, NetConnection& sender) {
    return keepDefaults(request, sender);
  });
}

Launcher::Launcher(Answer answer) { start(answer); }

void Launcher::start(const Answer& answer) {
  // Listening before the process is there, so that nobody has to wait for it.
  int port = 0;
  const int listening = listeningSocket(port);
  Settings settings = Settings::current();
  settings.basePort = port + 1;
  settings.threads = 1;
  Settings::replaceForTest(settings);
  process_.emplace([&] {
    Delegate delegate(folder_.path(), answer);
    NetConnection::runServerForSocket(listening, delegate);
  });
  close(listening);
}

std::vector<std::string> Launcher::requests() const {
  std::vector<std::string> bodies;
  while (true) {
    const std::filesystem::path file = folder_ / ("request" + std::to_string(bodies.size()));
    if (!std::filesystem::exists(file)) {
      return bodies;
    }
    bodies.push_back(readFile(file));
  }
}

Reply Launcher::keepDefaults(const Message& request, NetConnection& sender) const {
  const std::string_view action = request.requiredText("action");
  MessageWriter reply = sender.replyWriter();
  if (action == "getDatabasePreferences") {
    reply.text("data", readFile(defaultsFile()));
  } else if (action == "setDatabasePreferences7" &&
             request.requiredText("parameter") == kPassword) {
    writeFile(defaultsFile(), *request.data("data"));
    reply.text("result", "succeed");
  } else {
    reply.text("result", "failed");
  }
  return Reply::written();
}

}  // namespace sorvane::test
