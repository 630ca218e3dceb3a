// Questions to the kernel's routing tables, rtnetlink(7).
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <functional>

namespace sorvane {

/// Hands each entry of one kind (RTM_GETLINK, RTM_GETADDR or RTM_GETROUTE; `family` AF_UNSPEC or
/// AF_INET) to `visit`. False when the kernel could not be asked. The list is a consistent one:
/// when it changed meanwhile it is asked for again, before the first entry is visited.
[[nodiscard]] bool visitNetlinkEntries(std::uint16_t type, unsigned char family,
                                       const std::function<void(const nlmsghdr&)>& visit);

/// Hands each attribute that follows the fixed part of an entry to `visit`.
template <typename Fixed, typename Visit>
void visitAttributes(const nlmsghdr& entry, Visit&& visit) {
  const auto* bytes = reinterpret_cast<const char*>(&entry);
  const char* at = bytes + NLMSG_LENGTH(NLMSG_ALIGN(sizeof(Fixed)));
  const char* end = bytes + entry.nlmsg_len;
  while (end - at >= static_cast<std::ptrdiff_t>(sizeof(rtattr))) {
    const auto* attribute = reinterpret_cast<const rtattr*>(at);
    if (attribute->rta_len < sizeof(rtattr) || attribute->rta_len > end - at) {
      return;
    }
    visit(static_cast<unsigned>(attribute->rta_type & NLA_TYPE_MASK), at + RTA_LENGTH(0),
          std::size_t{attribute->rta_len} - RTA_LENGTH(0));
    at += RTA_ALIGN(attribute->rta_len);
  }
}

}  // namespace sorvane
