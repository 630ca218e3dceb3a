// Any bytes as the settings file. Either every value is in the range that Settings.h tells, or the
// reason is one line that names the file and a line of it.
#include <algorithm>
#include <string>

#include "platform/Console.h"
#include "platform/PropertyList.h"
#include "platform/Settings.h"
#include "support/FileInMemory.h"
#include "support/Require.h"

namespace {

using namespace sorvane;
using namespace sorvane::fuzz;
using namespace std::chrono_literals;

constexpr const char* kFolderOfExecutable = "/opt/sorvane/bin";

const FileInMemory& file() {
  static const auto* const made = new FileInMemory;
  return *made;
}

std::size_t linesOfFile = 0;
std::size_t consoleLines = 0;

void requirePlaceInFile(std::string_view line) {
  const std::string start = file().path() + ":";
  require(line.starts_with(start), "a message begins with the path of the file");
  line.remove_prefix(start.size());
  std::size_t number = 0;
  while (!line.empty() && line[0] >= '0' && line[0] <= '9') {
    number = number * 10 + static_cast<std::size_t>(line[0] - '0');
    line.remove_prefix(1);
  }
  require(number >= 1 && number <= linesOfFile, "a message names a line of the file");
  require(line.starts_with(": ") && line.size() > 2, "a message has a reason");
  for (const char c : line) {
    require(static_cast<unsigned char>(c) >= ' ' && c != '\x7f', "a message is one line of text");
  }
}

void requirePath(const std::string& path) {
  require(path.starts_with('/'), "a path is absolute");
  require(path == "/" || path.back() != '/', "a path ends without a slash");
}

void requireRanges(const Settings& settings) {
  require(settings.basePort >= 2 && settings.basePort <= 65534, "BasePort");
  for (const std::string& path :
       {settings.installationDirectory, settings.serverConfigDirectory, settings.userPreferenceFile,
        settings.nameServerHostFile, settings.lockDirectory}) {
    requirePath(path);
  }
  require(!settings.hostName || (!settings.hostName->empty() && settings.hostName->size() <= 255 &&
                                 settings.hostName->find_first_of(" \t\n") == std::string::npos),
          "HostName");
  const auto address = IPAddress::parse(settings.address.value_or("192.0.2.1"));
  require(address && address->isIPv4(), "Address");
  require(settings.ethernetAddress.value_or("02:00:5e:10:00:07").size() == 17, "EthernetAddress");
  for (const auto& [alias, of] : settings.aliases) {
    require(!alias.empty() && !of.empty(), "Aliases");
  }
  require(settings.maxMessageBytes >= 1 && settings.maxMessageBytes <= 0xffffffff,
          "MaxMessageBytes");
  require(settings.maxConnections >= 0, "MaxConnections");
  require(settings.maxUnfinishedBytes >= 1 && settings.maxUnsentBytes >= 1, "bounds of memory");
  require(settings.maxRegistryBytes >= 1048576, "MaxRegistryBytes");
  require(settings.partialMessageTimeout >= 1ms && settings.partialMessageTimeout <= 24h,
          "PartialMessageTimeout");
  require(settings.threads >= 0 && settings.threads <= 1024, "Threads");
  require(settings.maxLogBytes >= 0, "MaxLogBytes");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::string_view content(reinterpret_cast<const char*>(data), size);
  file().hold(content);
  linesOfFile = 1 + static_cast<std::size_t>(std::count(content.begin(), content.end(), '\n'));
  consoleLines = 0;
  setConsoleSink([](std::string_view line) {
    ++consoleLines;
    requirePlaceInFile(line);
  });
  try {
    requireRanges(Settings::read(file().path().c_str(), kFolderOfExecutable));
    const PropertyList list = PropertyList::parse(content);
    require(list.dictionary() != nullptr, "settings are a dictionary");
    require(consoleLines <= list.dictionary()->size(), "a key causes one console line at most");
  } catch (const NSException& error) {
    requirePlaceInFile(error.what());
  }
  return 0;
}
