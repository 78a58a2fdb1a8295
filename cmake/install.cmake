# What cmake --install gives: the headers, both libraries, the package files of CMake and pkg-config; the
# command installs itself. Nothing in it knows where it was installed, so the tree can be moved.
include(CMakePackageConfigHelpers)

set(zrmp4_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zrmp4)
set(zrmp4_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES include/zr_mp4.h include/zr_mp4_ext.h include/zr_log.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
install(TARGETS zrmp4 zrmp4_static EXPORT zrmp4Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(EXPORT zrmp4Targets NAMESPACE zrmp4:: DESTINATION ${zrmp4_package_dir})

configure_package_config_file(cmake/zrmp4Config.cmake.in zrmp4Config.cmake INSTALL_DESTINATION ${zrmp4_package_dir})
write_basic_package_version_file(zrmp4ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zrmp4Config.cmake ${CMAKE_CURRENT_BINARY_DIR}/zrmp4ConfigVersion.cmake
  DESTINATION ${zrmp4_package_dir})

# From the folder of the .pc file back to the prefix, however deep the library folder is.
file(RELATIVE_PATH zrmp4_prefix /${zrmp4_pkgconfig_dir} /)
string(REGEX REPLACE "/$" "" zrmp4_prefix "${zrmp4_prefix}")
configure_file(cmake/zrmp4.pc.in zrmp4.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zrmp4.pc DESTINATION ${zrmp4_pkgconfig_dir})
