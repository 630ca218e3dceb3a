# sorvane_library(<folder> [DEPENDS <folder>...]): the static library of one folder of src/, made of every
# source file in it. The folders it may depend on are those that tests/layout/allowed_includes.txt names.
function(sorvane_library folder)
  cmake_parse_arguments(ARG "" "" "DEPENDS" ${ARGN})
  file(GLOB sources CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.cpp
       ${CMAKE_CURRENT_SOURCE_DIR}/${folder}/*.h)
  add_library(sorvane_${folder} STATIC ${sources})
  target_include_directories(sorvane_${folder} PUBLIC ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(sorvane_${folder} PUBLIC Threads::Threads)
  foreach(dependency ${ARG_DEPENDS})
    target_link_libraries(sorvane_${folder} PUBLIC sorvane_${dependency})
  endforeach()
endfunction()
