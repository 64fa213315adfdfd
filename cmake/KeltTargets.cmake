# How every target of this project is compiled and linked.
include(CheckPIESupported)
check_pie_supported(LANGUAGES CXX)

# Definitions for sources that read the clock, or examine files: a 64-bit time_t on 32-bit systems, where such calls fail
# after January 2038 otherwise. Empty if the C library has none (glibc before 2.34). Deliberate: not for all sources of the
# libraries, because they would also give open(2) the flag O_LARGEFILE.
set(kelt_time64)
if(CMAKE_SIZEOF_VOID_P EQUAL 4)
  include(CheckCXXSourceCompiles)
  set(CMAKE_REQUIRED_DEFINITIONS -D_TIME_BITS=64 -D_FILE_OFFSET_BITS=64)
  check_cxx_source_compiles("#include <ctime>
    static_assert(sizeof(std::time_t) == 8, \"\");
    int main() {}" KELTIPC_HAS_TIME64)
  unset(CMAKE_REQUIRED_DEFINITIONS)
  if(KELTIPC_HAS_TIME64)
    set(kelt_time64 _TIME_BITS=64 _FILE_OFFSET_BITS=64)
  endif()
endif()

function(kelt_compile_options target)
  target_compile_features(${target} PUBLIC cxx_std_17)
  set_target_properties(${target} PROPERTIES CXX_EXTENSIONS OFF)
  target_compile_options(${target} PRIVATE -Wall -Wextra -Wpedantic -Wconversion -Wshadow -Wnon-virtual-dtor)
  if(KELTIPC_WARNINGS_AS_ERRORS)
    target_compile_options(${target} PRIVATE -Werror)
  endif()
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # Silences notes on 32-bit ARM about arguments that GCC before 7.1, too old for this project, passed differently.
    target_compile_options(${target} PRIVATE -Wno-psabi)
  endif()
  if(KELTIPC_SANITIZE)
    target_compile_options(${target} PRIVATE -fsanitize=${KELTIPC_SANITIZE} -fno-sanitize-recover=all
                                             -fno-omit-frame-pointer)
    target_link_options(${target} PRIVATE -fsanitize=${KELTIPC_SANITIZE})
  endif()
  if(KELTIPC_HARDENING)
    target_link_options(${target} PRIVATE -Wl,-z,relro,-z,now)
    target_compile_options(${target} PRIVATE -fstack-protector-strong)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
    # _FORTIFY_SOURCE works only in optimised builds. If the builder's flags set it, they win. A cross SDK has its flags in
    # $CXX, which CMake splits into compiler and COMPILER_ARG1.
    if(NOT KELTIPC_SANITIZE AND NOT "${CMAKE_CXX_COMPILER_ARG1} ${CMAKE_CXX_FLAGS}" MATCHES "_FORTIFY_SOURCE")
      set(optimised "$<OR:$<CONFIG:Release>,$<CONFIG:RelWithDebInfo>,$<CONFIG:MinSizeRel>>")
      target_compile_options(${target} PRIVATE "$<${optimised}:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=2>")
    endif()
  endif()
endfunction()

# kelt_add_library(ipc SOURCES...) makes libkeltipc.so.1, the target keltipc::ipc.
function(kelt_add_library name)
  set(target keltipc_${name})
  add_library(${target} SHARED ${ARGN})
  add_library(keltipc::${name} ALIAS ${target})
  kelt_compile_options(${target})
  set(map ${PROJECT_SOURCE_DIR}/src/${name}/kelt${name}.map)
  set_target_properties(${target} PROPERTIES
    OUTPUT_NAME kelt${name}
    EXPORT_NAME ${name}
    VERSION ${PROJECT_VERSION}
    SOVERSION ${PROJECT_VERSION_MAJOR}
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON
    LINK_DEPENDS ${map})
  # -fno-plt: calls of other libraries skip the dynamic linker's jump table, because after a system call the processor
  # does not predict that jump. -fno-tree-slp-vectorize: a wide load of two members would wait for the narrow stores that
  # an append made to them just before.
  target_compile_options(${target} PRIVATE -fno-plt -fno-tree-slp-vectorize)
  target_link_options(${target} PRIVATE -Wl,--version-script=${map})
  target_include_directories(${target} PUBLIC
    $<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>
    $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/keltipc>)
  # For the build only: no public header includes one of libsystemd, so users of the libraries do not need it.
  target_link_libraries(${target} PRIVATE $<BUILD_INTERFACE:PkgConfig::SYSTEMD>)
  if(KELTIPC_COVERAGE)
    target_compile_options(${target} PRIVATE --coverage -fprofile-update=atomic)
    target_link_options(${target} PRIVATE --coverage)
  endif()
endfunction()

# kelt_add_program(NAME SOURCES...)
function(kelt_add_program name)
  add_executable(${name} ${ARGN})
  kelt_compile_options(${name})
endfunction()
