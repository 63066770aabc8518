# SPDX-License-Identifier: Apache-2.0
# What every folder of tests needs: GoogleTest, and how CTest gets to know the tests of a program.

if(CMAKE_CROSSCOMPILING)  # Debian's library is for this machine's processor
  add_subdirectory(/usr/src/googletest googletest EXCLUDE_FROM_ALL)
else()
  find_package(GTest REQUIRED)
endif()
include(GoogleTest)

# Each test of the program is one for CTest, in a process of its own.
# Usage: hyl_discover_tests(program [prefix])
function(hyl_discover_tests program)
  if(CMAKE_CROSSCOMPILING)
    target_compile_definitions(${program} PRIVATE HYL_EMULATED)
  endif()
  gtest_discover_tests(${program}
    NO_PRETTY_VALUES TEST_PREFIX "${ARGN}" DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 300)
endfunction()
