# The driver of bench/run: needs the name server at run time, not to be built.
find_package(CLI11 REQUIRED)
find_package(fmt REQUIRED)
file(GLOB driver_sources CONFIGURE_DEPENDS driver/*.cpp driver/*.h)
add_executable(bench_driver ${driver_sources})
target_include_directories(bench_driver PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(bench_driver PRIVATE sorvane_platform CLI11::CLI11 fmt::fmt)
if(SORVANE_TESTS AND TARGET sorvinfo)
  add_test(NAME bench.TrialRunOfTheBenchmarkWorks
           COMMAND bench_driver --trial --daemon $<TARGET_FILE:sorvinfo>)
  set_tests_properties(bench.TrialRunOfTheBenchmarkWorks PROPERTIES TIMEOUT 240 LABELS bench)
endif()
