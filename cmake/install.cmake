# What cmake --install gives: the headers, both libraries, the package files of CMake and pkg-config, the manual; the
# command installs itself. Nothing in it knows where it was installed, so the tree can be moved. The components are
# those of a distribution: runtime is what a finished program needs, dev what building one needs, tools the command.
include(CMakePackageConfigHelpers)

set(zrmp4_package_dir ${CMAKE_INSTALL_LIBDIR}/cmake/zrmp4)
set(zrmp4_pkgconfig_dir ${CMAKE_INSTALL_LIBDIR}/pkgconfig)

install(FILES include/zr_mp4.h include/zr_mp4_ext.h include/zr_log.h
  DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT dev)
install(TARGETS zrmp4 zrmp4_static EXPORT zrmp4Targets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
  ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(EXPORT zrmp4Targets NAMESPACE zrmp4:: DESTINATION ${zrmp4_package_dir} COMPONENT dev)

configure_package_config_file(cmake/zrmp4Config.cmake.in zrmp4Config.cmake INSTALL_DESTINATION ${zrmp4_package_dir})
write_basic_package_version_file(zrmp4ConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zrmp4Config.cmake ${CMAKE_CURRENT_BINARY_DIR}/zrmp4ConfigVersion.cmake
  DESTINATION ${zrmp4_package_dir} COMPONENT dev)

# From the folder of the .pc file back to the prefix, however deep the library folder is.
file(RELATIVE_PATH zrmp4_prefix /${zrmp4_pkgconfig_dir} /)
string(REGEX REPLACE "/$" "" zrmp4_prefix "${zrmp4_prefix}")
configure_file(cmake/zrmp4.pc.in zrmp4.pc @ONLY)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/zrmp4.pc DESTINATION ${zrmp4_pkgconfig_dir} COMPONENT dev)

install(FILES docs/man/zrmp4-format.5 DESTINATION ${CMAKE_INSTALL_MANDIR}/man5 COMPONENT dev)
if(ZRMP4_BUILD_TOOLS)
  install(FILES docs/man/zrmp4.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
  install(FILES packaging/bash-completion/zrmp4
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()
