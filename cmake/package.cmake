# Debian packages through CPack (`make package`): one per install component
# of cmake/install.cmake.
#
#   liboxconfigmgr1     runtime  the shared object and the factory files
#   liboxconfigmgr-dev  dev      headers, CMake and pkg-config files, the
#                                unversioned link, the API reference
#   oxcfg               tool     the command-line tool, manual page, completion
#
# Dependencies on shared libraries are computed by dpkg-shlibdeps from the
# binaries; only the programs run at run time are declared by hand, on the
# package that runs them. Configure with -DCMAKE_INSTALL_PREFIX=/usr (the
# tool finds the factory files under its install prefix).
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME oxconfigmgr)
set(CPACK_PACKAGE_VENDOR "oxconfigmgr developers")
set(CPACK_PACKAGE_CONTACT "oxconfigmgr maintainers <maintainers@oxconfigmgr.invalid>")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev tool)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://oxconfigmgr.invalid/")
set(_full_version "${CPACK_DEBIAN_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME liboxconfigmgr1)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# 7za makes and reads the export archives; the zone files back the time zone.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "p7zip-full, tzdata")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/cmake/debian/triggers)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "configuration manager library of the device-access gateway\n"
    "Owns every persistent setting of the gateway: its XML configuration files, the\n"
    "configuration and system-log databases, the administrator's credentials, the\n"
    "web server's TLS key and certificate, the log settings and the time zone.\n"
    "Ships the factory configuration a new installation starts from.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME liboxconfigmgr-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "liboxconfigmgr1 (= ${_full_version})")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "configuration manager library of the device-access gateway (development)\n"
    "Headers, the CMake package (find_package(oxconfigmgr)), the pkg-config file\n"
    "and the HTML API reference of liboxconfigmgr.")

set(CPACK_DEBIAN_TOOL_PACKAGE_NAME oxcfg)
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION admin)
# The factory files come with the library; 7za runs for export and import.
set(CPACK_DEBIAN_TOOL_PACKAGE_DEPENDS "liboxconfigmgr1 (= ${_full_version}), p7zip-full")
set(CPACK_COMPONENT_TOOL_DESCRIPTION
    "command-line tool of the gateway's configuration manager\n"
    "Lays out a configuration directory from the factory defaults, checks one\n"
    "(oxcfg doctor), starts the library there and reads or changes settings;\n"
    "exports and imports the whole configuration as an encrypted archive.")

# Every package carries its copyright file and changelog.
string(TIMESTAMP OXCFG_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
configure_file(${PROJECT_SOURCE_DIR}/cmake/debian/changelog.in ${PROJECT_BINARY_DIR}/debian/changelog.Debian @ONLY)
add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz
                   COMMAND gzip -9n -c ${PROJECT_BINARY_DIR}/debian/changelog.Debian
                           > ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz
                   DEPENDS ${PROJECT_BINARY_DIR}/debian/changelog.Debian VERBATIM)
add_custom_target(debian_changelog ALL DEPENDS ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz)
foreach(_component runtime dev tool)
  string(TOUPPER ${_component} _upper)
  set(_package ${CPACK_DEBIAN_${_upper}_PACKAGE_NAME})
  install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian/copyright ${PROJECT_BINARY_DIR}/debian/changelog.Debian.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${_package} COMPONENT ${_component}
          PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
endforeach()

include(CPack)
