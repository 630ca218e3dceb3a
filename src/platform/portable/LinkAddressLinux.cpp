#include <linux/if_packet.h>
#include <sys/socket.h>

#include "platform/HostNetwork.h"
#include "platform/portable/LinkAddress.h"

namespace sorvane {

std::string linkAddress(const sockaddr& address) {
  if (address.sa_family != AF_PACKET) {
    return "";
  }
  const auto& link = reinterpret_cast<const sockaddr_ll&>(address);
  return formatEthernetAddress(link.sll_addr, link.sll_halen);
}

}  // namespace sorvane
