# Installation and packaging: the package configuration that find_package(remotectrl) reads, the
# man pages, and CPack's three Debian packages, one per install component:
#   runtime  remotectrl          znhost, rcclient, the module, their man pages with
#                                remotectrl.ini(5) and remotectrl(7)
#   dev      remotectrl-dev      headers, static libraries, the CMake package
#   python   python3-remotectrl  the Python package in lib/python3/dist-packages, RemoteCtrlDS
#                                and its man page
# The install() rules of the targets live beside the targets; the top-level CMakeLists.txt sets
# their components. CPack rather than a debian/ folder: it packages the build that was just
# configured and tested, in seconds, where dpkg-buildpackage would build everything again.
include(CMakePackageConfigHelpers)

set(remotectrl_config_dir ${CMAKE_INSTALL_LIBDIR}/cmake/remotectrl)
set(REMOTECTRL_MODULE_PATH ${REMOTECTRL_MODULE_DIR}/remotectrl.so)

install(EXPORT remotectrlTargets
        NAMESPACE remotectrl::
        DESTINATION ${remotectrl_config_dir}
        COMPONENT dev)
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
        DESTINATION ${remotectrl_config_dir}
        COMPONENT dev)

# ---- Man pages. znhost(1) and rcclient(1) come from the programs' own --help and --version, so
# that they never disagree; the settings file, the command language and the Tango server, which no
# --help can carry, are written by hand in doc/.

set(remotectrl_man_dir ${PROJECT_BINARY_DIR}/man)
set(remotectrl_man_pages)
# Installs doc/SOURCE.in, the version filled in, gzipped into the man section its name ends in;
# further arguments go to install(). gzip -n leaves out the time stamp, so that the same sources
# give the same package.
function(remotectrl_add_man_page source component)
    string(REGEX MATCH "[0-9]$" section ${source})
    set(page ${remotectrl_man_dir}/${source})
    configure_file(${PROJECT_SOURCE_DIR}/doc/${source}.in ${page} @ONLY)
    add_custom_command(OUTPUT ${page}.gz COMMAND gzip -9nkf ${page} DEPENDS ${page} VERBATIM)
    install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man${section} COMPONENT ${component}
            ${ARGN})
    set(remotectrl_man_pages ${remotectrl_man_pages} ${page}.gz PARENT_SCOPE)
endfunction()
remotectrl_add_man_page(remotectrl.ini.5 runtime)
remotectrl_add_man_page(remotectrl.7 runtime)

if(REMOTECTRL_BUILD_MANPAGES)
    find_program(REMOTECTRL_HELP2MAN help2man REQUIRED)
    set(znhost_man_name "stand-in device-control host that loads the remotectrl plug-in")
    set(rcclient_man_name "send commands to the remotectrl command server")
    set(see_also ${PROJECT_SOURCE_DIR}/doc/see-also.h2m)
    foreach(program IN ITEMS znhost rcclient)
        set(page ${remotectrl_man_dir}/${program}.1)
        # help2man takes a usage line's indented continuation for description: the wrapper joins
        # it to the usage line, and help2man reads the program's text through it.
        file(GENERATE OUTPUT ${remotectrl_man_dir}/help/${program}
             CONTENT "#!/bin/sh\n'$<TARGET_FILE:${program}>' \"$@\" | sed '/^Usage:/{:a;N;s/\\n  *\\[/ [/;ta}'\n"
             FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE
                              WORLD_READ WORLD_EXECUTE)
        add_custom_command(
            OUTPUT ${page}.gz
            COMMAND ${REMOTECTRL_HELP2MAN} --no-info --no-discard-stderr --include=${see_also}
                    "--name=${${program}_man_name}" --output=${page} ${remotectrl_man_dir}/help/${program}
            COMMAND gzip -9nf ${page}
            DEPENDS ${program} ${see_also}
            VERBATIM)
        list(APPEND remotectrl_man_pages ${page}.gz)
        install(FILES ${page}.gz DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT runtime)
    endforeach()
endif()

# ---- The Python package, built from python/pyproject.toml by setuptools without a package index

set(remotectrl_python_dir lib/python3/dist-packages)

if(REMOTECTRL_BUILD_PYTHON_PACKAGE)
    # Debian's own interpreter, whose setuptools and wheel the package is built with, even where
    # another python3 comes first in PATH.
    find_program(REMOTECTRL_DEBIAN_PYTHON3 python3 PATHS /usr/bin NO_DEFAULT_PATH REQUIRED)
    set(remotectrl_python_root ${PROJECT_BINARY_DIR}/python-package/root)
    file(GLOB_RECURSE remotectrl_python_sources CONFIGURE_DEPENDS
         ${PROJECT_SOURCE_DIR}/python/pyproject.toml ${PROJECT_SOURCE_DIR}/python/remotectrl/*)
    add_custom_command(
        OUTPUT ${PROJECT_BINARY_DIR}/python-package/stamp
        COMMAND ${CMAKE_COMMAND} -DPYTHON=${REMOTECTRL_DEBIAN_PYTHON3}
                -DSOURCE=${PROJECT_SOURCE_DIR}/python -DWORK=${PROJECT_BINARY_DIR}/python-package
                -P ${PROJECT_SOURCE_DIR}/cmake/BuildPythonPackage.cmake
        DEPENDS ${remotectrl_python_sources} ${PROJECT_SOURCE_DIR}/cmake/BuildPythonPackage.cmake
        VERBATIM)
    add_custom_target(python_package ALL DEPENDS ${PROJECT_BINARY_DIR}/python-package/stamp)
    # For the package only: a plain install into /usr/local would miss Python's search path there,
    # and pip installs the package anywhere else.
    install(DIRECTORY ${remotectrl_python_root}/ DESTINATION ${remotectrl_python_dir}
            COMPONENT python EXCLUDE_FROM_ALL)
    # The Tango device server's command; pip writes its own from pyproject.toml.
    set(remotectrl_server_launcher ${PROJECT_BINARY_DIR}/deb/RemoteCtrlDS)
    file(GENERATE OUTPUT ${remotectrl_server_launcher}
         CONTENT "#!/usr/bin/python3\nimport sys\n\nfrom remotectrl._server import main\n\nsys.exit(main())\n"
         FILE_PERMISSIONS OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
    install(PROGRAMS ${remotectrl_server_launcher} DESTINATION ${CMAKE_INSTALL_BINDIR}
            COMPONENT python EXCLUDE_FROM_ALL)
    remotectrl_add_man_page(RemoteCtrlDS.1 python EXCLUDE_FROM_ALL)
endif()
add_custom_target(manpages ALL DEPENDS ${remotectrl_man_pages})

# ---- Debian packages

set(REMOTECTRL_DEB_MAINTAINER "remotectrl maintainers <maintainers@remotectrl.example.org>"
    CACHE STRING "Maintainer field of the Debian packages")
set(remotectrl_deb_packages runtime remotectrl dev remotectrl-dev)
if(REMOTECTRL_BUILD_PYTHON_PACKAGE)
    list(APPEND remotectrl_deb_packages python python3-remotectrl)
endif()

# Every package carries the licence as a machine-readable copyright file and the changelog.
file(READ ${PROJECT_SOURCE_DIR}/LICENSE remotectrl_licence)
string(REGEX MATCH "Copyright \\(c\\) ([^\n]*)" _ "${remotectrl_licence}")
set(remotectrl_copyright_holder "${CMAKE_MATCH_1}")
string(REGEX REPLACE "^.*Copyright \\(c\\) [^\n]*\n\n" "" remotectrl_licence "${remotectrl_licence}")
string(REGEX REPLACE "\n\n" "\n.\n" remotectrl_licence "${remotectrl_licence}")
string(REGEX REPLACE "\n([^\n])" "\n \\1" remotectrl_licence " ${remotectrl_licence}")
file(WRITE ${PROJECT_BINARY_DIR}/deb/copyright
     "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
     "Upstream-Name: remotectrl\n\n"
     "Files: *\nCopyright: ${remotectrl_copyright_holder}\nLicense: Expat\n${remotectrl_licence}")
# A release without its changelog entry fails here: lintian does not compare the versions.
add_custom_command(
    OUTPUT ${PROJECT_BINARY_DIR}/deb/changelog.gz
    COMMAND grep -q "^remotectrl (${PROJECT_VERSION})" ${PROJECT_SOURCE_DIR}/cmake/changelog
    COMMAND ${CMAKE_COMMAND} -E copy ${PROJECT_SOURCE_DIR}/cmake/changelog ${PROJECT_BINARY_DIR}/deb/
    COMMAND gzip -9nf ${PROJECT_BINARY_DIR}/deb/changelog
    DEPENDS ${PROJECT_SOURCE_DIR}/cmake/changelog
    VERBATIM)
add_custom_target(deb_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/deb/changelog.gz)
set(remotectrl_deb_components)
while(remotectrl_deb_packages)
    list(POP_FRONT remotectrl_deb_packages component package)
    list(APPEND remotectrl_deb_components ${component})
    string(TOUPPER ${component} upper)
    set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
    install(FILES ${PROJECT_BINARY_DIR}/deb/copyright ${PROJECT_BINARY_DIR}/deb/changelog.gz
            DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
            COMPONENT ${component} EXCLUDE_FROM_ALL)
endwhile()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME remotectrl)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
# Each package's description carries its own synopsis line: an empty common summary keeps CPack
# from putting the project's in front of all three.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_PACKAGE_CONTACT "${REMOTECTRL_DEB_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL ${remotectrl_deb_components})
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# dpkg-shlibdeps gives each binary package the library versions it was linked against.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION net)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "TCP remote control plug-in for a device-control host
The remotectrl plug-in module gives remote programs a line-based TCP command
interface to the acquisition devices of the host application that loads it.
.
This package holds the module, znhost, a stand-in host with simulated devices
that loads it, and rcclient, a command-line client for its command server.")

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "remotectrl (= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "TCP remote control plug-in for a device-control host (development)
The static socket, settings, file and protocol libraries of remotectrl, the
host interfaces, their headers, and the CMake package that
find_package(remotectrl) reads.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_DEBIAN_PYTHON_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3:any (>= 3.9)")
set(CPACK_DEBIAN_PYTHON_PACKAGE_RECOMMENDS "python3-tango")
# Python writes byte code beside the modules it imports, in __pycache__ folders that dpkg does not
# know: left there, they would keep the package's folder after a purge. They go in prerm, before
# dpkg removes the package's files (in postrm the folders would already have been found not
# empty), whatever the removal is for, as py3clean does. DPKG_ROOT is the root dpkg installs to.
set(remotectrl_python_prerm ${PROJECT_BINARY_DIR}/deb/python/prerm)
file(WRITE ${remotectrl_python_prerm} "#!/bin/sh
set -e
package_dir=\"$DPKG_ROOT${CPACK_PACKAGING_INSTALL_PREFIX}/${remotectrl_python_dir}/remotectrl\"
if [ -d \"$package_dir\" ]; then
    find \"$package_dir\" -type d -name __pycache__ -prune -exec rm -rf {} +
fi
")
set(CPACK_DEBIAN_PYTHON_PACKAGE_CONTROL_EXTRA ${remotectrl_python_prerm})
set(CPACK_DEBIAN_PYTHON_DESCRIPTION "Python client and Tango device server for remotectrl
A client for the remotectrl plug-in's TCP command server that pairs every
reply with its command exactly; it needs the standard library only.
.
RemoteCtrlDS, a Tango device server built on it, makes each acquisition
device of a remotectrl host a Tango device; it needs python3-tango.")
include(CPack)
