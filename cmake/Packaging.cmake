# Installation and packaging: the package configuration that find_package(remotectrl) reads, and
# CPack's Debian package of everything that `cmake --install` puts in place. The install() rules
# of the targets themselves live beside the targets.
include(CMakePackageConfigHelpers)

set(remotectrl_config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/remotectrl)
# znhost looks for ../lib/remotectrl.so beside itself, so the module goes to lib/ whatever the
# platform's library folder is called.
set(REMOTECTRL_MODULE_PATH lib/remotectrl.so)

install(EXPORT remotectrlTargets
        NAMESPACE remotectrl::
        DESTINATION ${remotectrl_config_dir})
configure_package_config_file(
    ${PROJECT_SOURCE_DIR}/cmake/remotectrlConfig.cmake.in
    ${PROJECT_BINARY_DIR}/remotectrlConfig.cmake
    INSTALL_DESTINATION ${remotectrl_config_dir}
    PATH_VARS REMOTECTRL_MODULE_PATH)
# Before 1.0 a minor version may break the interfaces.
write_basic_package_version_file(
    ${PROJECT_BINARY_DIR}/remotectrlConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/remotectrlConfig.cmake
              ${PROJECT_BINARY_DIR}/remotectrlConfigVersion.cmake
        DESTINATION ${remotectrl_config_dir})

set(CPACK_PACKAGE_NAME remotectrl)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "remotectrl developers <remotectrl@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION devel)
# Written out rather than computed with dpkg-shlibdeps, which a plain Debian system lacks.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libc6, libstdc++6, libgcc-s1")
set(CPACK_PACKAGE_DESCRIPTION
    "The plug-in module, the stand-in host znhost, the command-line client rcclient, and the socket, settings and file layers with their headers and CMake package.")
include(CPack)
