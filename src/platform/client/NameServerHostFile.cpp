// The name server host file, and the other functions of NetConnection that return settings.
#include "platform/NameServerHostFile.h"

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

std::string reasonOf(const PlainFileFailure& failure) {
  switch (failure.kind) {
    case PlainFileFailure::Kind::noPlainFile:
      return "it is no plain file";
    case PlainFileFailure::Kind::tooLong:
      return "it is too long";
    case PlainFileFailure::Kind::systemError:
      break;
  }
  return failure.error.message();
}

}  // namespace

NameServerHostFile readNameServerHostFile(const std::string& path) {
  std::error_code error;
  NameServerHostFile result;
  result.exists = std::filesystem::exists(path, error);
  if (!result.exists) {
    result.failure = error ? error.message() : "";
    return result;
  }
  const auto file = readPlainFile(path, kMaximumFileBytes);
  if (const auto* failure = std::get_if<PlainFileFailure>(&file)) {
    result.failure = reasonOf(*failure);
  } else {
    result.host = namedHost(std::get<std::string>(file));
  }
  return result;
}

bool NetConnection::hostFileSearchForNameServer(NetConnection& connection, bool* fileFound) {
  const std::string path = nameserverHostFilePath();
  const NameServerHostFile file = readNameServerHostFile(path);
  if (fileFound != nullptr) {
    *fileFound = file.exists;
  }
  if (file.exists && !file.failure.empty()) {
    consoleLine("name server host file " + path + " cannot be read");
  }
  if (file.host.empty() || VNHost::currentHost().isThisHost(file.host)) {
    return false;
  }
  Client& client = connection.client();
  const Client::Deadline deadline = client.connectDeadline();
  // The name can mean this host although only the resolver knows that.
  if (!client.connect(file.host, basePortNumber(), deadline) ||
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
