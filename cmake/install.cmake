include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

install(TARGETS oxconfigmgr EXPORT oxconfigmgrTargets
        LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/oxconfigmgr
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(DIRECTORY ${PROJECT_SOURCE_DIR}/factory/
        DESTINATION ${CMAKE_INSTALL_DATADIR}/oxconfigmgr/factory)
install(EXPORT oxconfigmgrTargets NAMESPACE oxconfigmgr::
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/oxconfigmgr)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/oxconfigmgrConfig.cmake.in
  ${PROJECT_BINARY_DIR}/oxconfigmgrConfig.cmake
  INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/oxconfigmgr)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/oxconfigmgrConfigVersion.cmake
  COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/oxconfigmgrConfig.cmake
              ${PROJECT_BINARY_DIR}/oxconfigmgrConfigVersion.cmake
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/oxconfigmgr)
configure_file(${PROJECT_SOURCE_DIR}/cmake/oxconfigmgr.pc.in
               ${PROJECT_BINARY_DIR}/oxconfigmgr.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/oxconfigmgr.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
