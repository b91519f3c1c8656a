# Binary packages with CPack, from the install components of the top-level
# CMakeLists.txt:
#   runtime  the shared library with its soname link
#   dev      headers, the unversioned .so link (or the import library), the
#            CMake package files, the pkg-config file and the example sources
#   sim      the ka-sim simulator (only when it is built)
# Linux: "cpack -G DEB" in the build directory gives one Debian package per
# component. Windows: "cpack -G ZIP" gives one archive of the whole SDK.
# Installed binaries are stripped; no debug-symbol package is made.

set(CPACK_PACKAGE_NAME ka-api)
set(CPACK_PACKAGE_VENDOR "ka-api developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Client library for six- and seven-axis robot arm controllers")
set(CPACK_STRIP_FILES ON)

set(CPACK_COMPONENTS_ALL runtime dev)
if(KA_BUILD_SIM)
    list(APPEND CPACK_COMPONENTS_ALL sim)
endif()
set(CPACK_COMPONENT_RUNTIME_DISPLAY_NAME "ka_api shared library")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "Client library for six- and seven-axis robot arm controllers: one C function per controller command over a JSON line protocol, realtime state over UDP, and in-process kinematics.")
set(CPACK_COMPONENT_DEV_DISPLAY_NAME "ka_api development files")
set(CPACK_COMPONENT_DEV_DESCRIPTION
    "Headers, CMake package (find_package(ka_api), target ka::api), pkg-config file (ka_api) and example sources for the ka_api robot arm client library.")
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_COMPONENT_SIM_DISPLAY_NAME "ka-sim controller simulator")
set(CPACK_COMPONENT_SIM_DESCRIPTION
    "Simulated robot arm controller serving one to five arms over the same line protocol, for trying programs without an arm.")

if(WIN32)
    # One archive holding ka_api.dll, its import library, the headers, the
    # package files and the example sources.
    set(CPACK_GENERATOR ZIP)
    set(CPACK_ARCHIVE_COMPONENT_INSTALL OFF)
    set(CPACK_PACKAGE_FILE_NAME ka_api-${PROJECT_VERSION}-win64)
else()
    set(CPACK_GENERATOR DEB)
    set(CPACK_DEB_COMPONENT_INSTALL ON)
    # Files under /usr, as Debian packages have them.
    set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
    if(NOT CPACK_DEBIAN_PACKAGE_MAINTAINER)
        set(CPACK_DEBIAN_PACKAGE_MAINTAINER "ka-api developers <ka-api@localhost>")
    endif()
    set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
    set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
    # Run-time dependencies (libcjson1, libstdc++6, libgcc-s1, libc6) from
    # the libraries the binaries are linked against.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
    # A shlibs file in the library package (any later 1.x will do), so that
    # programs packaged against it get their dependency from dpkg-shlibdeps.
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
    set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

    # The package name carries the soname major, so that a later
    # incompatible library can be installed beside this one.
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libka-api${PROJECT_VERSION_MAJOR})
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)

    set(CPACK_DEBIAN_DEV_PACKAGE_NAME libka-api-dev)
    set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
    set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS
        "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION})")

    set(CPACK_DEBIAN_SIM_PACKAGE_NAME ka-sim)
    set(CPACK_DEBIAN_SIM_PACKAGE_SECTION misc)
endif()

include(CPack)
