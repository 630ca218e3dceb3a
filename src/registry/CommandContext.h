// What a command works with.
#pragma once

#include <memory>
#include <string>
#include <string_view>
#include <variant>

#include "platform/NSException.h"
#include "platform/NetConnection.h"
#include "registry/Continuity.h"
#include "registry/HostFacts.h"
#include "registry/Outcome.h"
#include "registry/Registry.h"

namespace sorvane {

/// What the commands need of the program around them. Made once.
struct ServerServices {
  const std::string& (*sorvaneVersion)();  ///< the product's version text
  const std::string& (*platformName)();    ///< the operating system's version text
};

/// One request that is being carried out.
struct CommandContext {
  Registry& registry;
  const Continuity& continuity;
  const Message& request;
  const NetConnection& sender;
  MessageWriter reply;  ///< writes the reply; raises NSException when it becomes too long
  const HostFacts& host;
  const ServerServices& services;
  const bool verbose;  ///< some commands then log what they do
  Notes& notes;        ///< what is to be written afterwards
  /// What the command has prepared; nothing for most commands.
  std::variant<std::monostate, OwnedPortName, PortMap::NamedRegistration> prepared = {};

  /// Returns the sender's record. Raises NSException when its connection was never opened.
  [[nodiscard]] PortDescriptor& record() const {
    if (auto* const record = sender.context<PortDescriptor>()) {
      return *record;
    }
    throw NSException("the sender has no port record");
  }
  /// Returns the sender's record with a share in it.
  [[nodiscard]] std::shared_ptr<PortDescriptor> sharedRecord() const {
    return sender.contextObject<PortDescriptor>();
  }

  /// Returns the reply that is the request itself. Raises NSException when no reply may be that
  /// long, so call it before anything is changed.
  [[nodiscard]] Reply requestAsReply() const {
    if (request.body().size() > kMaximumReplyBytes) {
      throw NSException("the reply would be too long");
    }
    return Reply::request();
  }
  /// Writes the reply {"result": text}.
  Reply result(std::string_view text) {
    reply.text("result", text);
    return Reply::written();
  }
};

/// Carries a request out, with `serverLock` held. A command reads its values first, which may raise
/// NSException, then changes the registry, then writes its reply. A command that raises has changed
/// nothing, so it can be delivered twice: one whose reply may be too long for a reply finds that
/// out before it changes anything.
using Command = Outcome (*)(CommandContext& context);

/// Does what takes time and needs no lock, before `serverLock` is taken: copies and hashes texts.
/// May raise NSException.
using Prepare = void (*)(CommandContext& context);

/// Returns true when the request needs a disk or leaves notes, or when the command has much work to
/// do. Called without `serverLock`.
using MayWait = bool (*)(const CommandContext& context);

}  // namespace sorvane
