// Reads the kernel's tables of interfaces, addresses and routes, rtnetlink(7).
#pragma once

#include <linux/netlink.h>
#include <linux/rtnetlink.h>

#include <cstdint>
#include <functional>

namespace sorvane {

/// Calls `visit` for each entry of one kind (RTM_GETLINK, RTM_GETADDR or RTM_GETROUTE). `family` is
/// AF_UNSPEC or AF_INET. The entries are consistent: if they change while they are read, all are
/// read again before the first visit. Returns false if the kernel cannot be asked, or if the
/// entries change too often.
[[nodiscard]] bool visitNetlinkEntries(std::uint16_t type, unsigned char family,
                                       const std::function<void(const nlmsghdr&)>& visit);

/// Calls `visit` for each attribute that follows the fixed part of an entry.
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
