#include "platform/FreeMemory.h"

namespace sorvane {

// The system takes it back by itself.
void returnFreeMemory() {}

}  // namespace sorvane
