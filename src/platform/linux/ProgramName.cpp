#include "platform/ProgramName.h"

#include <errno.h>

namespace sorvane {

const char* programName() { return program_invocation_short_name; }

}  // namespace sorvane
