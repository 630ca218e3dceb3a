#include <algorithm>
#include <thread>

#include "platform/host/UsableCores.h"

namespace sorvane {

int usableCores() { return std::max(1, static_cast<int>(std::thread::hardware_concurrency())); }

}  // namespace sorvane
