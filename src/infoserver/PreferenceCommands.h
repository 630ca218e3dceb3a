// The commands of the info server: what each reads, does to the preferences, and answers.
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
  bool verbose;  ///< write failures of the file to the console
};

/// A command: its word in "action", compared ignoring the case of ASCII letters, and what it does.
/// It raises NSException when a value that it needs is missing or of another kind; nothing is then
/// changed and nothing written to the reply.
struct PreferenceCommand {
  std::string_view word;
  Reply (*handle)(PreferenceRequest& request);
};

/// All commands, in the order in which their words are tested.
[[nodiscard]] std::span<const PreferenceCommand> preferenceCommands();

/// Handles the request with the command that its "action" names. Any other word, and a request
/// without one, is answered with an empty dictionary. The info server's lock must be held.
Reply handlePreferenceRequest(PreferenceRequest& request);

}  // namespace sorvane
