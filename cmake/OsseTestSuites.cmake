# Run by CTest when it starts, once for each test program: one test for CTest is one suite of
# GoogleTest, in a process of its own. A process for each test costs more under Wine than the tests.
#
#   PROGRAM    the command that starts the test program, as a list
#   EXECUTABLE the file of the program, whose age tells whether the listing is still true
#   LISTING    where the program's own listing of its tests is kept
#   DIRECTORY  where the tests run
if(NOT EXISTS ${EXECUTABLE})
  # CTest shows this name when a build has left the program out.
  add_test(${EXECUTABLE}_NOT_BUILT ${EXECUTABLE}_NOT_BUILT)
  return()
endif()

if(NOT EXISTS ${LISTING} OR ${EXECUTABLE} IS_NEWER_THAN ${LISTING})
  execute_process(COMMAND ${PROGRAM} --gtest_list_tests
    WORKING_DIRECTORY ${DIRECTORY}
    TIMEOUT 300
    OUTPUT_VARIABLE listing
    RESULT_VARIABLE result)
  if(NOT result EQUAL 0)
    message(FATAL_ERROR "${EXECUTABLE} does not list its tests: ${result}")
  endif()
  file(WRITE ${LISTING} "${listing}")
endif()

# A suite stands at the start of a line and ends with a point; its tests follow, indented.
file(STRINGS ${LISTING} suites REGEX "^[^ ]+\\.( .*)?$")
foreach(suite IN LISTS suites)
  string(REGEX REPLACE "\\.( .*)?$" "" suite "${suite}")
  add_test(${suite} ${PROGRAM} --gtest_filter=${suite}.*)
  set_tests_properties(${suite} PROPERTIES WORKING_DIRECTORY ${DIRECTORY})
endforeach()
