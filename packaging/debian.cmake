# The Debian packages, made by `cpack -G DEB` in a build configured with -DCMAKE_INSTALL_PREFIX=/usr.
# scripts/package does both.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME talvex)
set(CPACK_PACKAGE_VENDOR "The Talvex developers")
# Each package has a first line of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_VERBATIM_VARIABLES ON)
# Files keep the paths that talvex.pc and the CMake package name.
set(CPACK_SET_DESTDIR ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)

set(TALVEX_DEBIAN_RELEASE 1 CACHE STRING "Revision of the Debian packages")
set(CPACK_DEBIAN_PACKAGE_RELEASE "${TALVEX_DEBIAN_RELEASE}")
set(CPACK_DEBIAN_FULL_VERSION "${PROJECT_VERSION}-${TALVEX_DEBIAN_RELEASE}")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "The Talvex developers <talvex@packages.invalid>")
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)

set(runtime_package "libtalvex${PROJECT_VERSION_MAJOR}")
set(development_package libtalvex-dev)
set(tools_package talvex-tools)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${runtime_package}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The search for the device asks udev.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_RECOMMENDS udev)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "driver library for SAT fiscal devices (CF-e-SAT)
A point-of-sale program loads this library to talk to a SAT, the fiscal device
that signs and transmits electronic receipts in Brazil. It finds the device on
the USB bus, carries the functions of the CF-e-SAT standard to it and keeps a
log of every frame. A udev rule gives the device its permissions and keeps
modem managers away from it.

Programs that load it at run time find it as
/usr/lib/x86_64-linux-gnu/libtalvex.so.${PROJECT_VERSION_MAJOR}.")
file(WRITE "${CMAKE_CURRENT_BINARY_DIR}/shlibs"
  "libtalvex ${PROJECT_VERSION_MAJOR} ${runtime_package} (>= ${PROJECT_VERSION})\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${CMAKE_CURRENT_BINARY_DIR}/shlibs"
  "${CMAKE_CURRENT_LIST_DIR}/debian/symbols"
  "${CMAKE_CURRENT_LIST_DIR}/debian/triggers"
  "${CMAKE_CURRENT_LIST_DIR}/debian/postinst"
  "${CMAKE_CURRENT_LIST_DIR}/debian/postrm")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "${development_package}")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS "${runtime_package} (= ${CPACK_DEBIAN_FULL_VERSION})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "driver library for SAT fiscal devices - development files
Header, link name, pkg-config and CMake package of the library that talks to
SAT fiscal devices (CF-e-SAT), with sample tills in several languages.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME "${tools_package}")
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtime_package} (>= ${CPACK_DEBIAN_FULL_VERSION})")
# The guides lead to the sample tills, which are in the development package.
set(CPACK_DEBIAN_TOOLS_PACKAGE_SUGGESTS "${development_package}")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "SAT fiscal devices: emulator and command-line tool
sat-emulator is a SAT fiscal device (CF-e-SAT) on a pseudo-terminal, for tills
that are built and tested without a device. satctl calls the functions of a
device from the command line and looks for what is wrong with one. The guides
of the library are here too, in English and Portuguese.")

# Each package tells its licence and its history where Debian looks for them.
configure_file("${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in" "${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian" @ONLY)
compressed("${CMAKE_CURRENT_BINARY_DIR}/changelog.Debian" changelog.Debian changelog)
compressed("${PROJECT_SOURCE_DIR}/CHANGELOG.md" changelog upstream_changelog)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
  install(FILES "${CMAKE_CURRENT_LIST_DIR}/debian/copyright" "${changelog}" "${upstream_changelog}"
    DESTINATION "${CMAKE_INSTALL_DATADIR}/doc/${${component}_package}" COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

include(CPack)
