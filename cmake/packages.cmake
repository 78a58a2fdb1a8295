# Debian packages, one for each component: cpack -G DEB. Configure with CMAKE_INSTALL_PREFIX=/usr, so that libraries go
# where the distribution has them; a toolchain file names the architecture in CPACK_DEBIAN_PACKAGE_ARCHITECTURE.
set(CPACK_PACKAGE_VENDOR "zrmp4")
set(CPACK_PACKAGE_CONTACT "zrmp4 maintainers <maintainers@zrmp4.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_COMPONENTS_ALL runtime dev)
if(ZRMP4_BUILD_TOOLS)
  list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${CPACK_DEBIAN_PACKAGE_ARCHITECTURE}")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libzrmp4-2)
set(CPACK_DEBIAN_DEV_PACKAGE_NAME libzrmp4-dev)
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zrmp4-tools)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION video)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "The shared library.")
set(CPACK_COMPONENT_DEV_DESCRIPTION
  "Headers, the static library, and the package files of CMake and pkg-config.")
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "The command zrmp4: record, repair, info, dump, get.")

set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libzrmp4-2 (= ${PROJECT_VERSION})")
if(CMAKE_CROSSCOMPILING)
  # dpkg-shlibdeps would answer the cross compiler's copies of these.
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6")
  set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "libc6, libgcc-s1, libstdc++6")
else()
  set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
  set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
endif()

# For packages that will link the library, and for the dynamic linker's cache.
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs "libzrmp4 2 libzrmp4-2 (>= ${PROJECT_VERSION})\n")
file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  ${CMAKE_CURRENT_BINARY_DIR}/debian/shlibs ${CMAKE_CURRENT_BINARY_DIR}/debian/triggers)
include(CPack)
