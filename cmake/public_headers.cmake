# The headers that clients get, in HYL_PUBLIC_HEADERS and, for scripts, in a file of the build folder:
# the contract with the framework, and those of the library that stand in v2/api/include/hyl itself,
# without the implementation's.
file(GLOB HYL_PUBLIC_HEADERS CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/v2/core/include/hyl/*.h
  ${PROJECT_SOURCE_DIR}/v2/api/include/hyl/*.h)
list(FILTER HYL_PUBLIC_HEADERS EXCLUDE REGEX "/hyl_spectral_impl\\.h$")
list(JOIN HYL_PUBLIC_HEADERS "\n" public_headers)
file(CONFIGURE OUTPUT ${PROJECT_BINARY_DIR}/public-headers.txt CONTENT "${public_headers}\n" @ONLY)
