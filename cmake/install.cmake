# Installs the headers, the library, the CMake package and the pkg-config file.
include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/ZLNSessionReporting)
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(TARGETS ZLNSessionReporting EXPORT ZLNSessionReportingTargets)
install(DIRECTORY include/ZLNSessionReporting DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
        FILES_MATCHING PATTERN "*.h")

install(EXPORT ZLNSessionReportingTargets NAMESPACE ZLNSessionReporting::
        DESTINATION ${package_dir})
configure_package_config_file(cmake/ZLNSessionReportingConfig.cmake.in
                              ${PROJECT_BINARY_DIR}/ZLNSessionReportingConfig.cmake
                              INSTALL_DESTINATION ${package_dir} NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZLNSessionReportingConfigVersion.cmake
                                 COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/ZLNSessionReportingConfig.cmake
              ${PROJECT_BINARY_DIR}/ZLNSessionReportingConfigVersion.cmake
        DESTINATION ${package_dir})

# The file finds its prefix from where it lies, so an installed tree may be moved.
cmake_path(ABSOLUTE_PATH pkgconfig_dir BASE_DIRECTORY /prefix OUTPUT_VARIABLE pkgconfig_path)
cmake_path(RELATIVE_PATH pkgconfig_path BASE_DIRECTORY /prefix OUTPUT_VARIABLE pkgconfig_depth)
string(REGEX REPLACE "[^/]+" ".." prefix_from_pkgconfig ${pkgconfig_depth})
configure_file(cmake/zlnsessionreporting.pc.in ${PROJECT_BINARY_DIR}/zlnsessionreporting.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/zlnsessionreporting.pc DESTINATION ${pkgconfig_dir})
