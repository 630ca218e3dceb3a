// The keys of the settings file, and what each of them sets.
#pragma once

#include <string_view>
#include <vector>

#include "platform/PropertyList.h"
#include "platform/Settings.h"

namespace sorvane {

/// Sets what the key stands for. Raises NSException with the reason if the value makes no sense.
/// Returns false if the key is unknown.
[[nodiscard]] bool applySetting(Settings& settings, std::string_view key,
                                const PropertyList& value);

/// Returns all keys, in the order of the table.
[[nodiscard]] std::vector<std::string_view> settingKeys();

}  // namespace sorvane
