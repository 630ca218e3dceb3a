#include "registry/PortCommands.h"

#include <charconv>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/Console.h"
#include "platform/VNHost.h"
#include "registry/LocalOnly.h"

namespace sorvane {
namespace {

// The longest number of 64 bits has 20 characters.
struct DecimalText {
  explicit DecimalText(std::int64_t value)
      : text(digits, std::to_chars(digits, digits + sizeof digits, value).ptr - digits) {}
  DecimalText(const DecimalText&) = delete;
  DecimalText& operator=(const DecimalText&) = delete;

  char digits[24];
  const std::string_view text;
};

void enter(CommandContext& context, std::string_view name) {
  context.registry.enterPort(name, context.sender.contextObject<PortDescriptor>());
  context.registry.setWatchToDirty();
}

// What both registering commands put on the record. An address that the request does not carry
// stays as it was.
void fill(PortDescriptor& record, const RequestKeys& request, std::string_view name,
          std::string_view host, std::string_view number, std::string_view type) {
  const auto address = request.optionalText(Key::portHostAddress);
  const std::string key = joinedKey(name, host);
  record.setRegistration({.portKey = key,
                          .portName = name,
                          .portHostAddress = address ? address : record.portHostAddress(),
                          .portHost = host,
                          .portNumber = number,
                          .portType = type});
}

// The address that "findPort" tests and gives back: the requester's own.
std::string_view requesterAddress(const RequestKeys& request, std::string_view host) {
  return request.optionalText(Key::portHostAddress).value_or(host);
}

bool isRefused(std::string_view address) {
  return isLocalOnlyHost(VNHost::currentHost()) && !isLoopbackName(address);
}

}  // namespace

Outcome newPort(CommandContext& context) {
  const RequestKeys& request = context.request;
  PortDescriptor& record = context.record();
  const std::string_view host = request.requiredText(Key::portHost);
  const std::string_view name = request.requiredText(Key::portName);
  const std::string_view type = request.requiredText(Key::portType);
  (void)request.optionalText(Key::portHostAddress);  // raises before a number is spent

  const std::int64_t basePort = NetConnection::basePortNumber();
  const DecimalText number(equalIgnoringCase(name, "sorvexec")
                               ? basePort - 1
                               : context.registry.takePortNumber(basePort));
  if (record.portNumber() && record.portName()) {
    context.registry.removePort(*record.portName());
  }
  fill(record, request, name, host, number.text, type);
  context.sender.replyWriter().text("portNumber", number.text);
  return Outcome::dictionary();
}

Outcome acceptPort(CommandContext& context) {
  const auto name = context.record().portName();
  if (!name) {
    throw NSException("a record without a name cannot be entered");
  }
  enter(context, *name);
  return Outcome::request();
}

Outcome reconnectPort(CommandContext& context) {
  const RequestKeys& request = context.request;
  const std::string_view name = request.requiredText(Key::reconnectPort);
  fill(context.record(), request, name, request.requiredText(Key::portHost),
       request.requiredText(Key::portNumber), request.requiredText(Key::portType));
  enter(context, name);
  return Outcome::request();
}

Outcome findPort(CommandContext& context) {
  const RequestKeys& request = context.request;
  if (context.verbose) {
    context.services.log("FIND PORT = " + request.request().description());
  }
  const std::string_view name = request.requiredText(Key::findPort);
  const std::string_view host = request.requiredText(Key::portHost);
  const std::string_view address = requesterAddress(request, host);
  if (isRefused(address)) {
    consoleLine("Remote user failed because server is configured for non-network access");
    return Outcome::noReply();
  }
  MessageWriter reply = context.sender.replyWriter();
  const bool found = context.registry.withPort(name, [&](const PortDescriptor& record) {
    reply.entries(record.numberAndNameEntries());
    // Deliberately what the requester sent, not the address that the port registered.
    reply.text("portHostAddress", address);
    reply.entries(record.hostAndTypeEntries());
  });
  if (!found) {
    reply.text("notFound", "notFound");
  }
  return Outcome::dictionary();
}

bool findPortMayWait(const CommandContext& context) {
  if (context.verbose) {
    return true;
  }
  if (!isLocalOnlyHost(VNHost::currentHost())) {
    return false;
  }
  const RequestKeys& request = context.request;
  const Key key = request.holds(Key::portHostAddress) ? Key::portHostAddress : Key::portHost;
  return !request.holds(key) || !isLoopbackName(textOfValue(request.bytes(key)).value_or(""));
}

}  // namespace sorvane
