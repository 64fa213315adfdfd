# kelt_add_test(NAME [LIBRARIES...] [LABELS...])
# Builds NAME_test.cpp and adds it to ctest as NAME.
#   LIBRARIES       kelt_fakes: what support/interpose.h declares
#   LABELS machine  the ARM machine runs it too
function(kelt_add_test name)
  cmake_parse_arguments(arg "" "" "LIBRARIES;LABELS" ${ARGN})
  kelt_add_program(${name}_test ${name}_test.cpp)
  target_include_directories(${name}_test PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name}_test PRIVATE keltipc::ipc keltipc::logging ${arg_LIBRARIES} GTest::gtest_main
                                             ${CMAKE_DL_LIBS})
  kelt_add_command(${name} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}_test>)
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}")
endfunction()

# kelt_add_command(NAME COMMAND...): adds a command to ctest, which ends it after KELTIPC_TEST_SECONDS.
function(kelt_add_command name)
  add_test(NAME ${name} COMMAND ${ARGN})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${KELTIPC_TEST_SECONDS} SKIP_RETURN_CODE 77)
endfunction()
