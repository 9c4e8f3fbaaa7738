# What `cmake --install` puts under the prefix, in three components that become
# the Debian packages: runtime (the shared libraries), development (headers,
# link libraries, CMake package, pkg-config file) and dlplay.
#
#   bin/dlplay                       bin/*.dll on Windows
#   lib/libdownloader.so.0.x.y       lib/*.dll.a on Windows
#   include/downloader/ include/wisp/  (the generated export headers inside)
#   lib/cmake/downloader/  lib/pkgconfig/downloader.pc
include(CMakePackageConfigHelpers)

set(DL_CMAKE_PACKAGE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/downloader)

# libdownloader finds libwisp beside it wherever the prefix is.
if(NOT WIN32)
  set_target_properties(downloader PROPERTIES INSTALL_RPATH "$ORIGIN")
endif()

install(TARGETS downloader wisp EXPORT downloaderTargets
  RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT development
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT development)
install(DIRECTORY
    ${PROJECT_SOURCE_DIR}/include/
    ${PROJECT_SOURCE_DIR}/wisp/include/
    ${PROJECT_BINARY_DIR}/include/
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT development
  FILES_MATCHING PATTERN "*.h")

install(EXPORT downloaderTargets NAMESPACE downloader::
  DESTINATION ${DL_CMAKE_PACKAGE_DIR} COMPONENT development)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/downloaderConfig.cmake.in
  ${PROJECT_BINARY_DIR}/downloaderConfig.cmake
  INSTALL_DESTINATION ${DL_CMAKE_PACKAGE_DIR})
# Within 0.x a minor release changes the interface, so a host asking for 0.2
# accepts 0.2.y only.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/downloaderConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/downloaderConfig.cmake ${PROJECT_BINARY_DIR}/downloaderConfigVersion.cmake
  DESTINATION ${DL_CMAKE_PACKAGE_DIR} COMPONENT development)

# The .pc file names its prefix relative to itself, so the installed tree can move.
file(RELATIVE_PATH DL_PC_PREFIX_FROM_PCDIR /${CMAKE_INSTALL_LIBDIR}/pkgconfig /)
string(REGEX REPLACE "/$" "" DL_PC_PREFIX_FROM_PCDIR "${DL_PC_PREFIX_FROM_PCDIR}")
configure_file(${PROJECT_SOURCE_DIR}/cmake/downloader.pc.in ${PROJECT_BINARY_DIR}/downloader.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/downloader.pc
  DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT development)

if(TARGET dlplay)
  file(RELATIVE_PATH DL_LIBDIR_FROM_BINDIR /${CMAKE_INSTALL_BINDIR} /${CMAKE_INSTALL_LIBDIR})
  set_target_properties(dlplay PROPERTIES INSTALL_RPATH "$ORIGIN/${DL_LIBDIR_FROM_BINDIR}")
  install(TARGETS dlplay RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT dlplay)
endif()

# cpack -G DEB: libdownloader0, libdownloader-dev, dlplay. The runtime package is
# named after the SONAME, as Debian names library packages.
set(CPACK_PACKAGE_NAME downloader)
set(CPACK_PACKAGE_VENDOR "downloader developers")
set(CPACK_PACKAGE_CONTACT "downloader developers <downloader@localhost>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Media download library with a disk cache and peer-CDN levels")
set(CPACK_COMPONENTS_ALL runtime development)
if(TARGET dlplay)
  list(APPEND CPACK_COMPONENTS_ALL dlplay)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
# dpkg-shlibdeps derives the system dependencies (libcurl4, libstdc++6, libssl3,
# ...) from the binaries; the dependencies among the three packages are named here.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/lib)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libdownloader${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libdownloader-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "libdownloader${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DLPLAY_PACKAGE_NAME dlplay)
set(CPACK_DEBIAN_DLPLAY_PACKAGE_SECTION video)
set(CPACK_DEBIAN_DLPLAY_PACKAGE_DEPENDS "libdownloader${PROJECT_VERSION_MAJOR} (= ${PROJECT_VERSION})")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "downloader and wisp shared libraries")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "downloader headers, CMake package and pkg-config file")
set(CPACK_COMPONENT_DLPLAY_DESCRIPTION "dlplay, the downloader's command-line player and demo")
include(CPack)
