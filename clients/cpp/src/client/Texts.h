// What the classes share: checks of what a program gives, and requests.
#pragma once

#include <string_view>

#include "client/wire/Request.h"
#include "sorvane/client.h"

namespace sorvane::client::detail {

// Each answers the error `invalidArgument`, or success.
[[nodiscard]] Result<void> checkServer(const NameServer& server);
[[nodiscard]] Result<void> checkName(std::string_view name);
[[nodiscard]] Result<void> checkText(std::string_view text);
/// A name, and a text that goes into the same request.
[[nodiscard]] Result<void> checkTexts(std::string_view name, std::string_view text);

/// True for a name or address that means the host itself, and for none.
[[nodiscard]] bool isLoopbackHost(std::string_view host);

[[nodiscard]] Request stateRequest(std::string_view name, std::string_view state);
[[nodiscard]] Request alertRequest(std::string_view name, std::string_view text);

}  // namespace sorvane::client::detail
