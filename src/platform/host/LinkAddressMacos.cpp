#include <net/if_dl.h>
#include <sys/socket.h>

#include "platform/host/HostNetwork.h"
#include "platform/host/LinkAddress.h"

namespace sorvane {

std::string linkAddress(const sockaddr& address) {
  if (address.sa_family != AF_LINK) {
    return "";
  }
  const auto& link = reinterpret_cast<const sockaddr_dl&>(address);
  return formatEthernetAddress(reinterpret_cast<const unsigned char*>(LLADDR(&link)),
                               link.sdl_alen);
}

}  // namespace sorvane
