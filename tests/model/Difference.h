// Replies as they came, compared with what the model replies.
#pragma once

#include <string_view>

#include "model/RegistryModel.h"

namespace sorvane::model {

/// The dictionary in a body of entries. What is no body, and a value that is no text with its NUL,
/// gives texts that no model replies.
[[nodiscard]] Reply dictionaryOf(std::string_view body);

/// True when a reply that came is the one that the model tells. Lists fit in any order, if both
/// have the same one. A time is compared as it stands.
[[nodiscard]] bool fits(const Reply& expected, const Reply& real);

}  // namespace sorvane::model
