// The keys of the settings file, and what each of them sets.
#pragma once

#include <string_view>

#include "platform/PropertyList.h"
#include "platform/Settings.h"

namespace sorvane {

/// Sets what the key stands for. Raises NSException with the reason if the value makes no sense.
/// Returns false if the key is unknown.
[[nodiscard]] bool applySetting(Settings& settings, std::string_view key,
                                const PropertyList& value);

}  // namespace sorvane
