#include <malloc.h>

#include "platform/FreeMemory.h"

namespace sorvane {

// Other C libraries give it back by themselves.
void returnFreeMemory() {
#ifdef __GLIBC__
  malloc_trim(0);
#endif
}

}  // namespace sorvane
