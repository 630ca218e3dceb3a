// How many processor cores this process may use.
#pragma once

namespace sorvane {

/// Returns the number of cores that this process may use at the same time, at least 1: the cores of
/// its affinity or, if that is less, the processor time of its control group in whole cores,
/// rounded up. Where the system does not tell, it is the number of the machine's cores. Implemented
/// in UsableCoresLinux.cpp and UsableCoresPortable.cpp.
[[nodiscard]] int usableCores();

}  // namespace sorvane
