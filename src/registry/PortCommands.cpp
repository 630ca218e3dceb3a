#include "registry/PortCommands.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "platform/Ascii.h"
#include "registry/RequestKeys.h"

namespace sorvane {
namespace {

struct DecimalText {
  explicit DecimalText(std::int64_t value)
      : text(digits, std::to_chars(digits, digits + sizeof digits, value).ptr - digits) {}
  DecimalText(const DecimalText&) = delete;
  DecimalText& operator=(const DecimalText&) = delete;

  char digits[24];  // the longest number of 64 bits has 20 characters
  const std::string_view text;
};

// What both registering commands set on the record. An address that the request does not carry
// stays as it was. The result has views of the arguments.
PortDescriptor::Registration registrationOf(const PortDescriptor& record, const Message& request,
                                            std::string_view portKey, std::string_view name,
                                            std::string_view host, std::string_view number,
                                            std::string_view type) {
  const auto address = request.optionalText(key::portHostAddress);
  return {.portKey = portKey,
          .portName = name,
          .portHostAddress = address ? address : record.portHostAddress(),
          .portHost = host,
          .portNumber = number,
          .portType = type};
}

std::string searchLine(const Message& request, const HostFacts& /*host*/) {
  return "FIND PORT = " + request.description();
}

}  // namespace

Outcome newPort(CommandContext& context) {
  const Message& request = context.request;
  PortDescriptor& record = context.record();
  const std::string_view host = request.requiredText(key::portHost);
  const std::string_view name = request.requiredText(key::portName);
  const std::string_view type = request.requiredText(key::portType);
  const std::string portKey = joinedKey(name, host);
  const std::int64_t basePort = context.host.basePort;
  const bool isLauncher = equalIgnoringCase(name, "sorvexec");

  std::int64_t number = basePort - 1;
  const PortMap::Record removed = context.registry.with([&](RegistryState& state) {
    if (!isLauncher) {
      number = state.maxport == 0 ? basePort + 1 : state.maxport;
    }
    const DecimalText text(number);
    PortMap::Record former = state.map.replaceRegistration(
        record, registrationOf(record, request, portKey, name, host, text.text, type),
        context.sender.descriptor());
    if (!isLauncher) {
      state.setNextPortNumber(number + 1);
    }
    return former;
  });
  context.reply.text(key::portNumber, DecimalText(number).text);
  return Reply::written();
}

void prepareAcceptPort(CommandContext& context) {
  const auto name = context.record().portName();
  if (!name) {
    throw NSException("a record without a name cannot be entered");
  }
  context.prepared.emplace<OwnedPortName>(*name);
}

Outcome acceptPort(CommandContext& context) {
  const Reply reply = context.requestAsReply();
  context.registry.enterPort(std::get<OwnedPortName>(std::move(context.prepared)),
                             context.sharedRecord(), context.sender.descriptor());
  context.registry.setWatchToDirty();
  return reply;
}

void prepareReconnectPort(CommandContext& context) {
  const Message& request = context.request;
  const std::string_view name = request.requiredText(key::reconnectPort);
  const std::string_view host = request.requiredText(key::portHost);
  const std::string_view number = request.requiredText(key::portNumber);
  const std::string_view type = request.requiredText(key::portType);
  const std::string portKey = joinedKey(name, host);
  context.prepared.emplace<PortMap::NamedRegistration>(
      registrationOf(context.record(), request, portKey, name, host, number, type));
}

Outcome reconnectPort(CommandContext& context) {
  const Reply reply = context.requestAsReply();
  const PortMap::Record replaced = context.registry.with([&](RegistryState& state) {
    return state.map.enterWith(std::get<PortMap::NamedRegistration>(std::move(context.prepared)),
                               context.sharedRecord(), context.sender.descriptor());
  });
  context.registry.setWatchToDirty();
  return reply;
}

Outcome findPort(CommandContext& context) {
  const Message& request = context.request;
  if (context.verbose) {
    context.notes.logLine = searchLine;
  }
  const std::string_view name = request.requiredText(key::findPort);
  const std::string_view host = request.requiredText(key::portHost);
  const std::string_view address = request.optionalText(key::portHostAddress).value_or(host);
  if (context.host.hasOnlyLoopbackAddress && !isLoopbackName(address)) {
    context.notes.warning = Warning::remoteUser;
    return Reply::none();
  }
  MessageWriter& reply = context.reply;
  const bool found = context.registry.withPort(name, [&](const PortDescriptor& record) {
    // The address is deliberately what the requester sent, not what the port registered.
    reply.textBetween(record.numberAndNameEntries(), key::portHostAddress, address,
                      record.hostAndTypeEntries());
  });
  if (!found) {
    reply.text("notFound", "notFound");
  }
  return Reply::written();
}

bool findPortMayWait(const CommandContext& context) {
  if (context.verbose) {
    return true;
  }
  if (!context.host.hasOnlyLoopbackAddress) {
    return false;
  }
  const Message& request = context.request;
  const std::string_view address =
      request.contains(key::portHostAddress) ? key::portHostAddress : key::portHost;
  return !isLoopbackName(request.text(address).value_or(""));
}

}  // namespace sorvane
