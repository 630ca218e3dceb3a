#include <linux/if_packet.h>
#include <sys/socket.h>

#include "platform/host/HostNetwork.h"
#include "platform/host/LinkAddress.h"

namespace sorvane {

std::string linkAddress(const sockaddr& address) {
  if (address.sa_family != AF_PACKET) {
    return "";
  }
  const auto& link = reinterpret_cast<const sockaddr_ll&>(address);
  return formatEthernetAddress(link.sll_addr, link.sll_halen);
}

}  // namespace sorvane
