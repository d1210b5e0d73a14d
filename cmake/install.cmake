# What `cmake --install` lays out, split into the three components that
# become the Debian packages (cmake/package.cmake):
#   runtime  the shared object (with its SONAME link) and the factory files
#   dev      headers, the CMake package, the pkg-config file, the
#            unversioned link and the API reference
#   tool     oxcfg with its manual page and bash completion (cli/)
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

# `docs`: the HTML API reference from the public headers (docs/Doxyfile.in).
# It fails on an undocumented public class or function and on any
# documentation error (docs/check_warnings.cmake); docs/warnings.log in the
# build folder lists every warning.
find_program(OXCFG_DOXYGEN doxygen)
if(OXCFG_DOXYGEN)
  configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)
  file(GLOB OXCFG_PUBLIC_HEADERS CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/oxconfigmgr/*.h)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/docs/html/index.html
                     COMMAND ${CMAKE_COMMAND} -E rm -rf ${PROJECT_BINARY_DIR}/docs/html
                     COMMAND ${OXCFG_DOXYGEN} ${PROJECT_BINARY_DIR}/docs/Doxyfile
                     COMMAND ${CMAKE_COMMAND} -DWARNINGS=${PROJECT_BINARY_DIR}/docs/warnings.log
                             -P ${PROJECT_SOURCE_DIR}/docs/check_warnings.cmake
                     DEPENDS ${PROJECT_BINARY_DIR}/docs/Doxyfile ${OXCFG_PUBLIC_HEADERS}
                             ${PROJECT_SOURCE_DIR}/docs/mainpage.md ${PROJECT_SOURCE_DIR}/docs/comment_filter.pl
                             ${PROJECT_SOURCE_DIR}/docs/check_warnings.cmake
                     WORKING_DIRECTORY ${PROJECT_BINARY_DIR}/docs VERBATIM)
  add_custom_target(docs DEPENDS ${PROJECT_BINARY_DIR}/docs/html/index.html)
endif()

install(TARGETS oxconfigmgr EXPORT oxconfigmgrTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/oxconfigmgr
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/factory/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/oxconfigmgr/factory COMPONENT runtime
        FILE_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
        PATTERN README.md EXCLUDE)
install(EXPORT oxconfigmgrTargets NAMESPACE oxconfigmgr::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/oxconfigmgr COMPONENT dev)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/oxconfigmgrConfig.cmake.in
  ${PROJECT_BINARY_DIR}/oxconfigmgrConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/oxconfigmgr)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/oxconfigmgrConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/oxconfigmgrConfig.cmake
              ${PROJECT_BINARY_DIR}/oxconfigmgrConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/oxconfigmgr COMPONENT dev)
configure_file(${PROJECT_SOURCE_DIR}/cmake/oxconfigmgr.pc.in
               ${PROJECT_BINARY_DIR}/oxconfigmgr.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/oxconfigmgr.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

# The API reference, when `docs` was built (make package builds it first).
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/liboxconfigmgr-dev/html COMPONENT dev OPTIONAL)
