# Builds the port from the project's folder that it lies in:
#   vcpkg install jurn --overlay-ports=packaging/vcpkg
# Not run yet, for vcpkg is not in Debian: the tests run its options of CMake alone.
vcpkg_cmake_configure(
  SOURCE_PATH "${CURRENT_PORT_DIR}/../.."
  OPTIONS
    -DJURN_BUILD_TOOLS=OFF
    -DJURN_BUILD_TESTS=OFF
    -DJURN_BUILD_BENCHMARKS=OFF
    -DJURN_BUILD_EXAMPLES=OFF
    -DJURN_BUILD_PYTHON=OFF
    -DJURN_BUILD_JAVA=OFF
    -DJURN_BUILD_PLUGINS=OFF)
vcpkg_cmake_install()
vcpkg_cmake_config_fixup(PACKAGE_NAME JURN CONFIG_PATH lib/cmake/JURN)
vcpkg_fixup_pkgconfig()
file(REMOVE_RECURSE "${CURRENT_PACKAGES_DIR}/debug/include")
vcpkg_install_copyright(FILE_LIST "${CURRENT_PORT_DIR}/../../LICENSE")
