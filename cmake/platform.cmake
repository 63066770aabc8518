# SPDX-License-Identifier: Apache-2.0
# What the library stands on: the host layer of this project, or a device's own sensor framework and
# libbase. Defines the targets hyl_v2_api and base either way.

if(HYL_PLATFORM STREQUAL "host")
  add_subdirectory(host/android-base)
  add_subdirectory(host/framework)
  # As in the installed package: a client that links the framework gets the logging with it.
  add_library(hyl_host_framework INTERFACE)
  target_link_libraries(hyl_host_framework INTERFACE hyl_v2_api base)
  set_target_properties(hyl_host_framework PROPERTIES EXPORT_NAME host_framework)
  add_library(hyl::host_framework ALIAS hyl_host_framework)
  add_library(hyl::host_base ALIAS base)
  return()
endif()

set(HYL_DEVICE_FRAMEWORK_LIBRARY "" CACHE FILEPATH "The device's hyl_v2_api.so")
set(HYL_DEVICE_BASE_LIBRARY "" CACHE FILEPATH "The device's libbase.so")
set(HYL_DEVICE_BASE_INCLUDE_DIR "" CACHE PATH "The folder that android-base/logging.h is in")

foreach(variable
    HYL_DEVICE_FRAMEWORK_LIBRARY HYL_DEVICE_BASE_LIBRARY HYL_DEVICE_BASE_INCLUDE_DIR)
  if(NOT EXISTS "${${variable}}")
    get_property(help CACHE ${variable} PROPERTY HELPSTRING)
    message(FATAL_ERROR
      "HYL_PLATFORM=device needs ${variable} (${help}); '${${variable}}' does not exist.")
  endif()
endforeach()

add_library(hyl_v2_api SHARED IMPORTED)
set_target_properties(hyl_v2_api PROPERTIES
  IMPORTED_LOCATION ${HYL_DEVICE_FRAMEWORK_LIBRARY}
  INTERFACE_LINK_LIBRARIES hyl_core)

add_library(base SHARED IMPORTED)
set_target_properties(base PROPERTIES
  IMPORTED_LOCATION ${HYL_DEVICE_BASE_LIBRARY}
  INTERFACE_INCLUDE_DIRECTORIES ${HYL_DEVICE_BASE_INCLUDE_DIR})
