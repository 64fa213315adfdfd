option(KELTIPC_BUILD_TOOLS "Build keltipc and keltipc-portsim (need CLI11 and libfuse3)" ${PROJECT_IS_TOP_LEVEL})
option(KELTIPC_BUILD_EXAMPLES "Build the example programs" ${PROJECT_IS_TOP_LEVEL})
option(KELTIPC_BUILD_TESTS "Build the tests (need GoogleTest)" ${PROJECT_IS_TOP_LEVEL})
option(KELTIPC_BUILD_FUZZERS "Build the fuzz targets (need clang)" OFF)
option(KELTIPC_BUILD_BENCH "Build the benchmarks (need Google Benchmark and sdbus-c++)" OFF)
option(KELTIPC_HARDENING "Full RELRO, immediate binding, stack protector, fortified libc calls, PIE tools" ON)
option(KELTIPC_WARNINGS_AS_ERRORS "What CI builds with" OFF)
set(KELTIPC_LOGGING_LIBRARY "" CACHE STRING
    "What offers ecu::vorn::logging to users of keltipc::ipc, in place of keltipc::logging")
option(KELTIPC_COVERAGE "Count which lines of the libraries run (gcc; scripts/coverage)" OFF)
set(KELTIPC_SANITIZE "" CACHE STRING "Sanitizers to build with: address,undefined or thread")

if(NOT CMAKE_BUILD_TYPE AND NOT CMAKE_CONFIGURATION_TYPES AND PROJECT_IS_TOP_LEVEL)
  set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

# Without it a tool's build-id depends on the folder that it was built in.
set(CMAKE_BUILD_RPATH_USE_ORIGIN ON)
