# What `cmake --install` lays out. Components: library (with headers and packages), host (the
# simulated hub and the logging stand-in), tool. The tree can be moved as a whole.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(HYL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hyl_spectral)
set(HYL_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# Headers of the host layer stay apart, so that a client for a device does not find them by chance.
set(HYL_HOST_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/hyl-host)
file(RELATIVE_PATH HYL_PREFIX_FROM_PKGCONFIG /prefix/${HYL_PKGCONFIG_DIR} /prefix)
string(REGEX REPLACE "/$" "" HYL_PREFIX_FROM_PKGCONFIG ${HYL_PREFIX_FROM_PKGCONFIG})
file(RELATIVE_PATH HYL_LIBDIR_FROM_BINDIR
  /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})

function(hyl_install_pkgconfig name component)
  configure_file(cmake/package/${name}.pc.in ${PROJECT_BINARY_DIR}/package/${name}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${name}.pc
    DESTINATION ${HYL_PKGCONFIG_DIR} COMPONENT ${component})
endfunction()

# component library
set_target_properties(hyl_v2_spectral_api PROPERTIES INSTALL_RPATH "$ORIGIN")
install(TARGETS hyl_v2_spectral_api
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT library)
install(FILES ${HYL_PUBLIC_HEADERS}
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/hyl COMPONENT library)
configure_package_config_file(
  cmake/package/hyl_spectralConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfig.cmake
  INSTALL_DESTINATION ${HYL_PACKAGE_DIR}
  PATH_VARS CMAKE_INSTALL_INCLUDEDIR CMAKE_INSTALL_LIBDIR HYL_HOST_INCLUDEDIR)
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfig.cmake
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfigVersion.cmake
  DESTINATION ${HYL_PACKAGE_DIR} COMPONENT library)
hyl_install_pkgconfig(hyl-spectral library)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/hyl-spectral COMPONENT library)

# component host
if(HYL_ON_HOST)
  set_target_properties(hyl_v2_api PROPERTIES INSTALL_RPATH "$ORIGIN")
  install(TARGETS hyl_v2_api base LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT host)
  install(DIRECTORY host/framework/include/hyl host/android-base/include/android-base
    DESTINATION ${HYL_HOST_INCLUDEDIR} COMPONENT host FILES_MATCHING PATTERN "*.h")
  hyl_install_pkgconfig(hyl-host-framework host)
endif()

# component tool
if(TARGET hyl_spectral_tool)
  set_target_properties(hyl_spectral_tool PROPERTIES
    INSTALL_RPATH "$ORIGIN/${HYL_LIBDIR_FROM_BINDIR}")
  install(TARGETS hyl_spectral_tool
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tool)
  install(FILES ${PROJECT_BINARY_DIR}/hyl-spectral.1
    DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tool OPTIONAL)
  install(FILES cmake/package/hyl-spectral.bash
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions
    RENAME hyl-spectral COMPONENT tool)
endif()
