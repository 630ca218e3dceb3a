// Any bytes as the name server host file. The host that it names must be the first word of the
// first line that is neither empty nor a comment, and the name server asks there unless that is
// this host.
#include <algorithm>
#include <string>

#include "platform/Console.h"
#include "platform/NetConnection.h"
#include "platform/Settings.h"
#include "platform/VNHost.h"
#include "support/FileInMemory.h"
#include "support/Require.h"
#include "support/ScriptedSocket.h"
#include "support/WireBytes.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;

const FileInMemory& file() {
  static const auto* const made = new FileInMemory;
  return *made;
}

std::string namedHost(std::string_view content) {
  constexpr std::string_view kBlanks = " \t\v\f\r";
  while (!content.empty()) {
    std::string_view line = content.substr(0, content.find('\n'));
    content.remove_prefix(std::min(content.size(), line.size() + 1));
    line.remove_prefix(std::min(line.size(), line.find_first_not_of(kBlanks)));
    if (!line.empty() && line[0] != '#') {
      return std::string(line.substr(0, line.find_first_of(kBlanks)));
    }
  }
  return {};
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int* /*count*/, char*** /*words*/) {
  Settings settings;
  settings.nameServerHostFile = file().path();
  settings.hostName = "testhost.example.test";
  settings.address = "192.0.2.1";
  settings.ethernetAddress = "02:00:5e:10:00:07";
  Settings::replaceForTest(settings);
  setConsoleSink([](std::string_view) {});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  file().hold(content);
  const std::string reply = test::frameOfTexts({});
  peer = PeerScript();
  peer.stream = Pieces(reply, 0);

  NetConnection connection;
  bool isThere = false;
  const bool isServed = NetConnection::hostFileSearchForNameServer(connection, &isThere);

  const std::string host = namedHost(content);
  const VNHost& thisHost = VNHost::currentHost();
  const bool isOther = !host.empty() && !thisHost.isThisHost(host);
  require(isThere, "the file is there");
  require(peer.addresses.empty() == !isOther, "only another host is asked");
  require(peer.resolved.empty() || peer.resolved.front() == host.c_str(),
          "the host is the first word of the file");
  require(isServed == (isOther && !thisHost.isThisHost(peer.addresses.front())),
          "a name server that replies to a ping serves, unless it is this host's");
  return 0;
}
