# find_package(sorvane) gives the targets sorvane::sorvane, the shared library, and sorvane::sorvane-static.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/sorvaneTargets.cmake)
