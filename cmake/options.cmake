# SPDX-License-Identifier: Apache-2.0
# Compiler options that every target of this project shares: link to hyl_options privately.

add_library(hyl_options INTERFACE)
target_compile_options(hyl_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wsign-conversion -Wnon-virtual-dtor
  -Wold-style-cast -Wcast-align -Wformat=2)
if(PROJECT_IS_TOP_LEVEL)  # another project's compiler may warn of more
  target_compile_options(hyl_options INTERFACE -Werror)
endif()
target_compile_features(hyl_options INTERFACE cxx_std_20)
# Before version 13, optimising g++ sees a faulty memcpy in the standard library's string + string.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_CXX_COMPILER_VERSION VERSION_LESS 13)
  target_compile_options(hyl_options INTERFACE $<$<NOT:$<CONFIG:Debug>>:-Wno-restrict>)
endif()
# Where a target is compiled as one, g++ takes its sources for headers.
if(CMAKE_CXX_COMPILER_ID STREQUAL GNU AND CMAKE_UNITY_BUILD)
  target_compile_options(hyl_options INTERFACE -Wno-subobject-linkage)
endif()
target_link_libraries(hyl_options INTERFACE Threads::Threads)

if(HYL_SANITIZE)
  target_compile_options(hyl_options INTERFACE
    -fsanitize=${HYL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
  target_link_options(hyl_options INTERFACE -fsanitize=${HYL_SANITIZE})
endif()
