# Warnings, hardening and sanitizers, the same for every target of the project.
add_compile_options(-Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual
                    -Wcast-qual -Wformat=2 -Wimplicit-fallthrough -Wundef)
if(SORVANE_WERROR)
  add_compile_options(-Werror)
endif()

# Date values and amounts are the same on every processor: each operation rounds to 64 bits. Otherwise many
# processors round once for a product and a sum, and x86 of 32 bits calculates in 80.
add_compile_options(-ffp-contract=off)
if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(i.86|x86)" AND CMAKE_SIZEOF_VOID_P EQUAL 4)
  add_compile_options(-msse2 -mfpmath=sse)
endif()

if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
  # GCC 12 sees an overlap in std::string's own operator+ (its bug 105651), in optimised builds alone.
  add_compile_options(-Wno-restrict)
  if(SORVANE_SANITIZERS MATCHES "thread")
    add_compile_options(-Wno-tsan)  # Asio uses fences, which this sanitizer passes over
  endif()
endif()

# Strangers reach these programs, so a mistake in them must be hard to use: addresses differ in each process, tables of
# functions and return addresses cannot be overwritten unnoticed, and the library's copies check their room.
include(CheckCXXCompilerFlag)
include(CheckPIESupported)
check_pie_supported()
add_compile_options(-fstack-protector-strong)
foreach(flag stack-clash-protection cf-protection)
  string(MAKE_C_IDENTIFIER "SORVANE_HAS_${flag}" has)
  check_cxx_compiler_flag(-f${flag} ${has})
  if(${has})
    add_compile_options(-f${flag})
  endif()
endforeach()
if(NOT APPLE)  # there the linker does this by itself
  add_link_options(-Wl,-z,relro,-z,now,-z,noexecstack)
endif()
if(NOT SORVANE_SANITIZERS)  # a sanitizer checks the same calls itself
  # Fortified functions need an optimised build.
  add_compile_options($<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE>
                      $<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-D_FORTIFY_SOURCE=2>)
endif()
add_compile_definitions($<$<CONFIG:Debug>:_GLIBCXX_ASSERTIONS>)

if(SORVANE_SANITIZERS)
  add_compile_options(-fsanitize=${SORVANE_SANITIZERS} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${SORVANE_SANITIZERS})
  if(SORVANE_SANITIZERS MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
endif()

if(SORVANE_FUZZERS)
  # The fuzzer steers by the paths taken in the libraries, not only in the target's own file.
  add_compile_options(-fsanitize=fuzzer-no-link)
endif()

if(SORVANE_COVERAGE)
  # Several threads, and all processes of a program, count in one file while they run. What is loaded into other
  # programs does not count: it would bring along what counts, once more.
  set(counting "$<NOT:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,MODULE_LIBRARY>>")
  add_compile_options("$<${counting}:-fprofile-instr-generate;-fcoverage-mapping;-fprofile-update=atomic>"
                      "$<${counting}:SHELL:-mllvm -runtime-counter-relocation>")
  add_link_options("$<${counting}:-fprofile-instr-generate>")
endif()
