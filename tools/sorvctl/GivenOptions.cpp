#include "sorvctl/GivenOptions.h"

#include <utility>

#include "platform/NSException.h"
#include "platform/Settings.h"
#include "sorvctl/Colours.h"
#include "sorvctl/Failure.h"
#include "sorvctl/HostAndPort.h"

namespace sorvctl {

namespace {

HostAndPort hostAndPort(const GivenOptions& given) {
  HostAndPort where = given.host.empty() ? HostAndPort{} : readHostAndPort(given.host);
  if (given.port != 0) {
    if (where.port.value_or(given.port) != given.port) {
      throw Failure(Status::wrongUsage, "\"" + given.host + "\" has another port than --port");
    }
    where.port = given.port;
  }
  return where;
}

}  // namespace

Options optionsOf(const GivenOptions& given) {
  const HostAndPort where = hostAndPort(given);
  Options options;
  options.host = where.host;
  options.port = where.port.value_or(0);
  options.timeoutSeconds = given.timeoutSeconds;
  options.json = given.json;
  return options;
}

void useSettings(const GivenOptions& given) {
  const std::optional<int> port = hostAndPort(given).port;
  try {
    sorvane::Settings settings = sorvane::Settings::readForThisProcess();
    settings.basePort = port.value_or(settings.basePort);
    sorvane::Settings::replace(std::move(settings));
  } catch (const sorvane::NSException& error) {
    throw Failure(Status::notReached, error.what());
  }
}

void useColours(const GivenOptions& given) {
  useColours(given.colour == "always"  ? Colouring::always
             : given.colour == "never" ? Colouring::never
                                       : Colouring::automatic);
}

}  // namespace sorvctl
