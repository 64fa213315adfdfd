# kelt_add_test(NAME [LIBRARIES...] [LABELS...] [UNDER PROGRAM ARGS...])
# Builds NAME_test.cpp and adds it to ctest as NAME.
#   LIBRARIES       kelt_fakes: what support/interpose.h declares
#   LABELS machine  the ARM machine runs it too
#   UNDER           a command that starts the test
function(kelt_add_test name)
  cmake_parse_arguments(arg "" "" "LIBRARIES;LABELS;UNDER" ${ARGN})
  kelt_add_program(${name}_test ${name}_test.cpp)
  target_include_directories(${name}_test PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name}_test PRIVATE keltipc::ipc keltipc::logging ${arg_LIBRARIES} GTest::gtest_main
                                             ${CMAKE_DL_LIBS})
  add_test(NAME ${name} COMMAND ${arg_UNDER} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}_test>)
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}" TIMEOUT ${KELTIPC_TEST_SECONDS})
endfunction()
