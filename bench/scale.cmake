file(GLOB scale_sources CONFIGURE_DEPENDS scale/*.cpp scale/*.h)
add_executable(bench_scale ${scale_sources})
target_include_directories(bench_scale PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
target_link_libraries(bench_scale PRIVATE sorvane_nameserver fmt::fmt)
