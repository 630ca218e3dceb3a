// The name server host file, which may name another computer as the one that serves. Also the other
// functions of NetConnection that return settings.
#include <filesystem>
#include <sstream>

#include "platform/Console.h"
#include "platform/NetConnection.h"
#include "platform/PlainFile.h"
#include "platform/Settings.h"
#include "platform/VNHost.h"
#include "platform/client/ClientConnection.h"

namespace sorvane {

namespace {

/// Far more than a host and comments need.
constexpr std::size_t kMaximumFileBytes = std::size_t{16} << 20;

/// Returns the first word of the first line that is neither empty nor a comment; empty if there is
/// none.
std::string namedHost(const std::string& content) {
  std::istringstream lines(content);
  std::string line;
  while (std::getline(lines, line)) {
    std::istringstream words(line);
    std::string word;
    if (words >> word && word.front() != '#') {
      return word;
    }
  }
  return {};
}

/// The host that the file names; empty when it names none or cannot be read.
std::string hostOfFile(const std::string& path) {
  const auto file = readPlainFile(path, kMaximumFileBytes);
  const auto* content = std::get_if<std::string>(&file);
  if (content == nullptr) {
    consoleLine("name server host file " + path + " cannot be read");
    return {};
  }
  return namedHost(*content);
}

}  // namespace

bool NetConnection::hostFileSearchForNameServer(NetConnection& connection, bool* fileFound) {
  const std::string path = nameserverHostFilePath();
  std::error_code error;
  const bool found = std::filesystem::exists(path, error);
  if (fileFound != nullptr) {
    *fileFound = found;
  }
  if (!found) {
    return false;
  }
  const std::string host = hostOfFile(path);
  if (host.empty() || VNHost::currentHost().isThisHost(host)) {
    return false;
  }
  Client& client = connection.client();
  const Client::Deadline deadline = client.connectDeadline();
  // The name can mean this host although only the resolver knows that.
  if (!client.connect(host, basePortNumber(), deadline) ||
      VNHost::currentHost().isThisHost(client.peerAddress())) {
    return false;
  }
  const std::optional<Message> reply = client.exchange({{"ping", "ping"}}, deadline);
  return reply && reply->entries().empty();
}

const char* NetConnection::nameserverHostFilePath() {
  return Settings::current().nameServerHostFile.c_str();
}

std::optional<std::string> NetConnection::aliasForAdress(std::string_view address) {
  const auto& aliases = Settings::current().aliases;
  const auto alias = aliases.find(address);
  return alias == aliases.end() ? std::nullopt : std::optional(alias->second);
}

}  // namespace sorvane
