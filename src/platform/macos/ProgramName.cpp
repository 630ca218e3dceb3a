#include "platform/ProgramName.h"

#include <stdlib.h>

namespace sorvane {

const char* programName() { return getprogname(); }

}  // namespace sorvane
