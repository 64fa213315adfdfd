string(COMPARE EQUAL "${CMAKE_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}" kelt_is_top_level)  # PROJECT_IS_TOP_LEVEL needs CMake 3.21

# What is built besides the libraries. AUTO: only if everything that it needs is found. ON: otherwise configuring fails.
set(kelt_part_default OFF)
if(kelt_is_top_level)
  set(kelt_part_default AUTO)
endif()
set(KELTIPC_BUILD_TOOLS ${kelt_part_default} CACHE STRING "keltipc and keltipc-portsim: AUTO, ON or OFF")
set(KELTIPC_BUILD_EXAMPLES ${kelt_part_default} CACHE STRING "The example programs: AUTO, ON or OFF")
set(KELTIPC_BUILD_TESTS ${kelt_part_default} CACHE STRING "The tests: AUTO (follows BUILD_TESTING), ON or OFF")
if(KELTIPC_BUILD_TESTS STREQUAL "AUTO" AND DEFINED BUILD_TESTING AND NOT BUILD_TESTING)
  set(KELTIPC_BUILD_TESTS OFF)
endif()
set(KELTIPC_TEST_SECONDS 300 CACHE STRING "How long a test may take, in seconds")
option(KELTIPC_BUILD_FUZZERS "Build the fuzz targets (need clang)" OFF)
option(KELTIPC_BUILD_BENCH "Build the benchmarks (need Google Benchmark and sdbus-c++)" OFF)

option(KELTIPC_HARDENING "Full RELRO, immediate binding, stack protector, fortified libc calls, PIE tools" ON)
option(KELTIPC_WARNINGS_AS_ERRORS "Treat warnings as errors, as CI does" OFF)
set(KELTIPC_LOGGING_LIBRARY "" CACHE STRING
    "Logging library for users of keltipc::ipc, instead of keltipc::logging; none: the program has the operations itself")
option(KELTIPC_COVERAGE "Record which lines of the libraries run (gcc; scripts/coverage)" OFF)
set(KELTIPC_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")

# Otherwise a tool's build-id would depend on the folder that it was built in.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)

# kelt_add_part(FOLDER PACKAGES...): adds the folder if the packages that it needs were found.
function(kelt_add_part folder)
  set(missing)
  foreach(package IN LISTS ARGN)
    if(NOT ${package}_FOUND)
      list(APPEND missing ${package})
    endif()
  endforeach()
  string(TOUPPER KELTIPC_BUILD_${folder} option)
  string(JOIN ", " missing ${missing})
  if(NOT missing)
    add_subdirectory(${folder})
  elseif(${option} STREQUAL "AUTO")
    message(STATUS "Left out: ${folder}. Not found: ${missing} (${option} is AUTO)")
  else()
    message(FATAL_ERROR "${option} is ${${option}}, but not found: ${missing}")
  endif()
endfunction()
