set(KELTIPC_TEST_SECONDS 120 CACHE STRING "What a test may take")

# kelt_add_test(NAME SOURCES [SOURCES...] [LIBRARIES...] [LABELS...] [UNDER PROGRAM ARGS...])
# One ctest entry a file: NAME_test.cpp becomes the entry NAME.
#   LABELS machine   the ARM machine runs it too
#   UNDER           what the test is started by
function(kelt_add_test name)
  cmake_parse_arguments(arg "" "" "SOURCES;LIBRARIES;LABELS;UNDER" ${ARGN})
  kelt_add_program(${name}_test ${name}_test.cpp ${arg_SOURCES})
  target_include_directories(${name}_test PRIVATE ${PROJECT_SOURCE_DIR}/tests ${PROJECT_SOURCE_DIR}/src)
  target_link_libraries(${name}_test PRIVATE keltipc::ipc keltipc::logging ${arg_LIBRARIES} GTest::gmock_main)
  add_test(NAME ${name} COMMAND ${arg_UNDER} ${CMAKE_CROSSCOMPILING_EMULATOR} $<TARGET_FILE:${name}_test>)
  set_tests_properties(${name} PROPERTIES LABELS "${arg_LABELS}" TIMEOUT ${KELTIPC_TEST_SECONDS})
endfunction()
