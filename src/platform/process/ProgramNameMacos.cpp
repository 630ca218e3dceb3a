#include <stdlib.h>

#include "platform/process/ProgramName.h"

namespace sorvane {

const char* programName() { return getprogname(); }

}  // namespace sorvane
