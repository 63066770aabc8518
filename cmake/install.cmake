# SPDX-License-Identifier: Apache-2.0
# What `cmake --install` lays out, and cpack packs for Debian. Components: library (with headers and
# packages), host (the simulated hub and the logging stand-in), tool. The tree can be moved as a whole.

include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(HYL_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/hyl_spectral)
set(HYL_PKGCONFIG_DIR ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
# Headers of the host layer stay apart, so that a client for a device does not find them by chance.
set(HYL_HOST_INCLUDEDIR ${CMAKE_INSTALL_INCLUDEDIR}/hyl-host)
file(RELATIVE_PATH HYL_INCLUDEDIR_FROM_PKGCONFIG
  /prefix/${HYL_PKGCONFIG_DIR} /prefix/${CMAKE_INSTALL_INCLUDEDIR})
file(RELATIVE_PATH HYL_LIBDIR_FROM_BINDIR
  /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})

# Installs what clients link: NAME.pc, and the targets that follow, with the folder of their headers.
function(hyl_install_libraries component pkgconfig includedir)
  install(TARGETS ${ARGN} EXPORT hyl_spectral-${component}
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT ${component}
    INCLUDES DESTINATION ${includedir})
  install(EXPORT hyl_spectral-${component}
    NAMESPACE hyl:: DESTINATION ${HYL_PACKAGE_DIR} COMPONENT ${component})
  configure_file(cmake/package/${pkgconfig}.pc.in ${PROJECT_BINARY_DIR}/package/${pkgconfig}.pc @ONLY)
  install(FILES ${PROJECT_BINARY_DIR}/package/${pkgconfig}.pc
    DESTINATION ${HYL_PKGCONFIG_DIR} COMPONENT ${component})
endfunction()

# component library
set_target_properties(hyl_v2_spectral_api PROPERTIES INSTALL_RPATH "$ORIGIN")
hyl_install_libraries(library hyl-spectral ${CMAKE_INSTALL_INCLUDEDIR} hyl_v2_spectral_api hyl_core)
install(DIRECTORY v2/core/include/hyl v2/api/include/hyl
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT library
  FILES_MATCHING PATTERN "*.h" PATTERN internal EXCLUDE PATTERN hyl_spectral_impl.h EXCLUDE)
configure_package_config_file(
  cmake/package/hyl_spectralConfig.cmake.in
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfig.cmake
  INSTALL_DESTINATION ${HYL_PACKAGE_DIR})
write_basic_package_version_file(
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfig.cmake
  ${PROJECT_BINARY_DIR}/package/hyl_spectralConfigVersion.cmake
  DESTINATION ${HYL_PACKAGE_DIR} COMPONENT library)
install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/hyl-spectral COMPONENT library)

# component host
if(HYL_ON_HOST)
  set_target_properties(hyl_v2_api PROPERTIES INSTALL_RPATH "$ORIGIN")
  hyl_install_libraries(host hyl-host-framework ${HYL_HOST_INCLUDEDIR}
    hyl_v2_api base hyl_host_framework)
  install(DIRECTORY host/framework/include/hyl host/android-base/include/android-base
    DESTINATION ${HYL_HOST_INCLUDEDIR} COMPONENT host)
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

# Each component is a Debian package, which installs to /usr.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME hyl-spectral)
set(CPACK_PACKAGE_CONTACT "The ${PROJECT_NAME} developers")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
include(CPack)
cpack_add_component(host DEPENDS library)
cpack_add_component(tool DEPENDS library host)
