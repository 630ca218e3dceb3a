// The scripts that let a shell complete the command lines of sorvctl. They stand in completions/.
#pragma once

#include <string_view>

namespace sorvctl {

/// What `sorvctl completion SHELL` prints for these shells. Each asks sorvctl itself what may stand
/// at the cursor, so that it need not be made anew for a new command.
extern const std::string_view kBashCompletion;
extern const std::string_view kZshCompletion;
extern const std::string_view kFishCompletion;

}  // namespace sorvctl
