# GoogleTest from its sources, and the functions that declare a test program.
#
# The sources are built with the project's own options, so that the cross compiler and the
# sanitizers see GoogleTest as they see the rest.
set(OSSE_GOOGLETEST /usr/src/googletest CACHE PATH "sources of GoogleTest and GoogleMock")
set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
add_subdirectory(${OSSE_GOOGLETEST} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)

set(OSSE_TEST_DIRECTORY ${PROJECT_BINARY_DIR}/tests/run)
file(MAKE_DIRECTORY ${OSSE_TEST_DIRECTORY})

# A test for CTest is a suite of GoogleTest; which there are, a program tells when CTest starts.
# GoogleTest's main serves the programs that bring none.
function(osse_test_program program)
  add_executable(${program} ${ARGN})
  target_include_directories(${program} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
  target_link_libraries(${program} PRIVATE osse_warnings GTest::gmock_main)
  set_target_properties(${program} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

  set(include ${CMAKE_CURRENT_BINARY_DIR}/${program}_suites.cmake)
  file(GENERATE OUTPUT ${include} CONTENT "
    set(PROGRAM [[${CMAKE_CROSSCOMPILING_EMULATOR}]] $<TARGET_FILE:${program}>)
    set(EXECUTABLE [[$<TARGET_FILE:${program}>]])
    set(LISTING [[${CMAKE_CURRENT_BINARY_DIR}/${program}_suites.txt]])
    set(DIRECTORY [[${OSSE_TEST_DIRECTORY}]])
    include([[${PROJECT_SOURCE_DIR}/cmake/OsseTestSuites.cmake]])
")
  set_property(DIRECTORY APPEND PROPERTY TEST_INCLUDE_FILES ${include})
endfunction()

# osse_test_objects(<program> <sources>)
#
# Tests of the library's inside, linked with its objects.
function(osse_test_objects program)
  osse_test_program(${program} ${ARGN})
  osse_use_library(${program} OBJECTS)
endfunction()

# osse_test_product(<program> <sources>)
#
# Tests of the DLL as it is shipped.
function(osse_test_product program)
  osse_test_program(${program} ${ARGN})
  osse_use_library(${program} PRODUCT)
endfunction()

# osse_test_alone(<program> <sources>)
#
# Tests of the few library sources that stand in the list, built into the program; the tests define
# whatever else these call.
function(osse_test_alone program)
  osse_test_program(${program} ${ARGN})
  target_compile_definitions(${program} PRIVATE OSS_STATIC)
  target_include_directories(${program} PRIVATE
    ${PROJECT_SOURCE_DIR} ${PROJECT_SOURCE_DIR}/include ${PROJECT_SOURCE_DIR}/core)
endfunction()
