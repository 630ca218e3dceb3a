#include "registry/HostLists.h"

#include <algorithm>
#include <utility>

#include "platform/NSException.h"

namespace sorvane {
namespace {

void keepList(KeptWriter& writer, const std::optional<HostLists::List>& list) {
  writer.flag(list.has_value());
  if (list) {
    writer.number(list->size());
    for (const std::string& key : *list) {
      writer.text(key);
    }
  }
}

std::optional<HostLists::List> restoredList(KeptReader& reader) {
  if (!reader.flag()) {
    return std::nullopt;
  }
  HostLists::List list(reader.count());
  for (std::string& key : list) {
    key = reader.text();
  }
  return list;
}

}  // namespace

std::string joinedKey(std::string_view name, std::string_view place) {
  std::string key;
  key.reserve(name.size() + 1 + place.size());
  key.append(name).append(1, '@').append(place);
  return key;
}

void HostLists::createBoth() {
  if (!hostList) {
    hostList.emplace();
    alternateHostList.emplace();
  }
}

void HostLists::createHostList() {
  if (!hostList) {
    hostList.emplace();
  }
}

void HostLists::connect(std::string_view hostName, std::string_view address) {
  std::string key = joinedKey(hostName, address);
  const bool isListed =
      hostList && std::find(hostList->begin(), hostList->end(), key) != hostList->end();
  if (isListed && hostList->size() >= kMostHosts) {
    throw NSException("the list of hosts is full");
  }
  createBoth();
  hostNameString = hostName;
  if (isListed) {
    hostList->push_back(std::move(key));
  }
}

bool HostLists::remove(std::string_view key) {
  if (!hostList) {
    return false;
  }
  const auto found = std::find(hostList->begin(), hostList->end(), key);
  if (found == hostList->end()) {
    return false;
  }
  const auto position = found - hostList->begin();
  hostList->erase(found);
  if (alternateHostList && position < std::ssize(*alternateHostList)) {
    alternateHostList->erase(alternateHostList->begin() + position);
  }
  return true;
}

std::string HostLists::joined(bool alternate) const {
  std::string text;
  const auto& list = alternate ? alternateHostList : hostList;
  if (list) {
    for (const std::string& key : *list) {
      text.append(&key == &list->front() ? "" : "|").append(key);
    }
  }
  return text;
}

void HostLists::keep(KeptWriter& writer) const {
  const auto& [hosts, alternateHosts, hostName] = *this;
  keepList(writer, hosts);
  keepList(writer, alternateHosts);
  writer.optionalText(hostName);
}

void HostLists::restore(KeptReader& reader) {
  auto& [hosts, alternateHosts, hostName] = *this;
  hosts = restoredList(reader);
  alternateHosts = restoredList(reader);
  hostName = reader.optionalText();
}

}  // namespace sorvane
