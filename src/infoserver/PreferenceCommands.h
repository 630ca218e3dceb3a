// The commands of the info server: what each reads, what it does to the preferences, and its reply.
#pragma once

#include <span>
#include <string_view>

#include "infoserver/PreferenceStore.h"
#include "platform/Message.h"
#include "platform/Reply.h"

namespace sorvane {

/// One request being handled.
struct PreferenceRequest {
  PreferenceStore& preferences;
  const Message& message;
  MessageWriter reply;
  bool mayChange;  ///< the sender may change the preferences
};

/// A command: the text of "action" that selects it, compared ignoring the case of ASCII letters,
/// and what it does. It raises NSException when a value that it needs is missing or of the wrong
/// kind, or when there is no room for an entry; it has then changed nothing and written nothing to
/// the reply.
struct PreferenceCommand {
  std::string_view word;
  Reply (*handle)(PreferenceRequest& request);
  bool changes;  ///< the reply is nil, and nothing is done, for a sender that may not change
};

/// Returns all commands, in the order in which their words are compared.
[[nodiscard]] std::span<const PreferenceCommand> preferenceCommands();

/// Handles the request with the command that its "action" names. The reply is an empty dictionary
/// when no command has that word or there is no "action". The info server's lock must be held.
Reply handlePreferenceRequest(PreferenceRequest& request);

}  // namespace sorvane
