find_package(GTest REQUIRED)

# The sanitizers' memory layout does not survive the address randomisation of newer kernels.
set(testLauncher)
if(CORVALINT_SANITIZE)
  execute_process(COMMAND setarch -R true RESULT_VARIABLE refused OUTPUT_QUIET ERROR_QUIET)
  if(NOT refused)
    set(testLauncher setarch -R)
  endif()
endif()

set(testEnvironment
  "ASAN_OPTIONS=detect_leaks=1:strict_string_checks=1:detect_stack_use_after_return=1"
  "UBSAN_OPTIONS=print_stacktrace=1"
  "TSAN_OPTIONS=halt_on_error=1:second_deadlock_stack=1")

# Tests are compiled without optimisation: that halves the time of a first build, and what they test
# is compiled as the tree says.
function(corvalint_compile_quickly target)
  target_compile_options(${target} PRIVATE -O0)
endfunction()

# corvalint_add_test(NAME SOURCES file... [LIBS target...] [TIMEOUT seconds] [LABELS label...]
#                    [ENVIRONMENT name=value...] [RUN_SERIAL])
# Makes the GoogleTest program NAME and registers it with ctest as one test.
function(corvalint_add_test name)
  cmake_parse_arguments(arg "RUN_SERIAL" "TIMEOUT" "SOURCES;LIBS;LABELS;ENVIRONMENT" ${ARGN})
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT 120)
  endif()
  add_executable(${name} ${arg_SOURCES})
  corvalint_warnings(${name})
  corvalint_compile_quickly(${name})
  target_link_libraries(${name} PRIVATE ${arg_LIBS} GTest::gmock GTest::gtest GTest::gtest_main)
  set(test ${CORVALINT_TEST_PREFIX}${name})
  add_test(NAME ${test} COMMAND ${testLauncher} $<TARGET_FILE:${name}> --gtest_brief=1)
  set_tests_properties(${test} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}"
                       ENVIRONMENT "${testEnvironment};${arg_ENVIRONMENT}")
  if(arg_RUN_SERIAL)
    set_tests_properties(${test} PROPERTIES RUN_SERIAL ON)
  endif()
endfunction()

# corvalint_test_uses(NAME target...): the test program NAME of tests/unit links these as well.
# Called by a tool beside the library that its test is about.
function(corvalint_test_uses name)
  set_property(GLOBAL APPEND PROPERTY CORVALINT_LIBS_OF_${name} ${ARGN})
endfunction()
