// All settings as one value that tests compare.
#pragma once

#include <tuple>

#include "platform/Settings.h"

namespace sorvane {

/// All settings, to compare them. A new one does not compile until it is named here.
inline auto everySetting(const Settings& settings) {
  const auto& [basePort, installationDirectory, serverConfigDirectory, userPreferenceFile,
               nameServerHostFile, lockDirectory, localAccessOnly, bonjourDisabled, dynamicAddress,
               hostName, address, ethernetAddress, aliases, maxMessageBytes, maxConnections,
               maxUnfinishedBytes, maxUnsentBytes, maxRegistryBytes, partialMessageTimeout, threads,
               allowedNetworks, remoteControl, remoteRegistration, maxLogBytes, surviveCrashes] =
      settings;
  return std::tuple(basePort, installationDirectory, serverConfigDirectory, userPreferenceFile,
                    nameServerHostFile, lockDirectory, localAccessOnly, bonjourDisabled,
                    dynamicAddress, hostName, address, ethernetAddress, aliases, maxMessageBytes,
                    maxConnections, maxUnfinishedBytes, maxUnsentBytes, maxRegistryBytes,
                    partialMessageTimeout, threads, allowedNetworks, remoteControl,
                    remoteRegistration, maxLogBytes, surviveCrashes);
}

}  // namespace sorvane
