#include <errno.h>

#include "platform/process/ProgramName.h"

namespace sorvane {

const char* programName() { return program_invocation_short_name; }

}  // namespace sorvane
