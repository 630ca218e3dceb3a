// What a command has at hand.
#pragma once

#include <memory>
#include <string>
#include <string_view>

#include "platform/NetConnection.h"
#include "registry/Outcome.h"
#include "registry/Registry.h"
#include "registry/RequestKeys.h"

namespace sorvane {

/// What the commands need of the program around them. Made once.
struct ServerServices {
  void (*log)(std::string_view line);      ///< one line of the log; may wait for the disk
  const std::string& (*sorvaneVersion)();  ///< the product's version text
  const std::string& (*platformName)();    ///< the operating system's version text
};

/// One request being carried out, with `serverLock` held.
struct CommandContext {
  Registry& registry;
  const RequestKeys& request;
  NetConnection& sender;
  const ServerServices& services;
  const bool verbose;  ///< some commands then log what they do

  /// The sender's record. Raises NSException when its connection was never opened.
  [[nodiscard]] PortDescriptor& record() const {
    if (auto* const record = sender.context<PortDescriptor>()) {
      return *record;
    }
    throw NSException("the sender has no port record");
  }

  /// The reply {"result": text}.
  [[nodiscard]] Outcome result(std::string_view text) const {
    sender.replyWriter().text("result", text);
    return Outcome::dictionary();
  }
};

/// A command: reads its values first (which may raise NSException), then changes the registry, then
/// writes its reply.
using Command = Outcome (*)(CommandContext& context);

/// True when carrying the request out may have to wait for a disk, a console or much work. Takes no
/// `serverLock`.
using MayWait = bool (*)(const CommandContext& context);

}  // namespace sorvane
