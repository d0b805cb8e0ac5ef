# Debian packages through CPack (`cpack -G DEB` in a build tree):
#   libtavutil      the shared objects a program runs with
#   libtavutil-dev  headers, static archive, pkg-config file, CMake package, manual pages
# The shared object's run path is /usr/local/lib, where it finds its two
# sibling libraries, so the packages install under /usr/local as well.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME libtavutil)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "libtavutil developers <tavutil@localhost>")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr/local)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libtavutil)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# libc's version comes from what the objects actually use.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS
    ${CMAKE_BINARY_DIR}/_CPack_Packages/Linux/DEB/${CPACK_PACKAGE_NAME}-${PROJECT_VERSION}-Linux/runtime/usr/local/${CMAKE_INSTALL_LIBDIR})
# /usr/local/lib is reached through the loader's cache: refresh it.
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_LIST_DIR}/deb/triggers)

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libtavutil-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libtavutil (= ${PROJECT_VERSION}), pkg-config")

include(CPack)
