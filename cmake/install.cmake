# The library, its headers, the CMake package `vnxstd` and the pkg-config file.

include(CMakePackageConfigHelpers)

set(package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/vnxstd)
install(TARGETS vnxstd EXPORT vnxstdTargets)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/include/vnxstd DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  FILES_MATCHING PATTERN "*.h")
install(EXPORT vnxstdTargets NAMESPACE vnxstd:: DESTINATION ${package_dir})

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/vnxstdConfig.cmake.in
  ${PROJECT_BINARY_DIR}/vnxstdConfig.cmake INSTALL_DESTINATION ${package_dir})
# Before 1.0 a minor version may change the interface.
write_basic_package_version_file(${PROJECT_BINARY_DIR}/vnxstdConfigVersion.cmake COMPATIBILITY SameMinorVersion)
install(FILES ${PROJECT_BINARY_DIR}/vnxstdConfig.cmake ${PROJECT_BINARY_DIR}/vnxstdConfigVersion.cmake
  DESTINATION ${package_dir})

# The pkg-config file finds the prefix from its own place, so that an installation may be moved.
set(pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH VNXSTD_PC_TO_PREFIX /prefix/${pkgconfig_dir} /prefix)
list(JOIN VNXSTD_ARITHMETIC " " VNXSTD_ARITHMETIC_FLAGS)
configure_file(${PROJECT_SOURCE_DIR}/cmake/vnxstd.pc.in ${PROJECT_BINARY_DIR}/vnxstd.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/vnxstd.pc DESTINATION ${pkgconfig_dir})

# Installed programs find the library beside them, wherever the prefix is.
file(RELATIVE_PATH bin_to_lib /prefix/${CMAKE_INSTALL_BINDIR} /prefix/${CMAKE_INSTALL_LIBDIR})
set(CMAKE_INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
