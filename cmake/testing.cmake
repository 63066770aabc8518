# What every folder of tests needs: GoogleTest, and how CTest gets to know the tests of a program.

find_package(GTest REQUIRED)
include(GoogleTest)

# Each test of the program is one for CTest, in a process of its own. Under an emulator, where the
# start of a process takes longer than most tests, the program as a whole is one.
# Usage: hyl_discover_tests(program timeout-in-seconds [prefix])
function(hyl_discover_tests program timeout)
  string(JOIN "" prefix ${ARGN})
  if(CMAKE_CROSSCOMPILING)
    math(EXPR timeout "${timeout} * 4")
    add_test(NAME ${prefix}${program} COMMAND ${program})
    set_tests_properties(${prefix}${program} PROPERTIES TIMEOUT ${timeout})
  else()
    gtest_discover_tests(${program}
      NO_PRETTY_VALUES TEST_PREFIX "${prefix}" DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT ${timeout})
  endif()
endfunction()
