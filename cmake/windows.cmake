# Windows build (MinGW-w64 cross build from Debian, or a native toolchain):
# the dependencies the Linux build takes from pkg-config and CMake packages,
# the DLL's names, and the Wine prefix the cross-built tests run in.

# cJSON: built from its source as a static library, linked into ka_api.dll.
# scripts/setup.sh fetches Debian's source package into third_party/.
# A native build with a package manager may provide cjson's own CMake
# package instead.
file(GLOB KA_CJSON_SOURCE ${PROJECT_SOURCE_DIR}/third_party/cjson-*/cJSON.c)
if(KA_CJSON_SOURCE)
    list(GET KA_CJSON_SOURCE 0 KA_CJSON_SOURCE)
    get_filename_component(KA_CJSON_DIR ${KA_CJSON_SOURCE} DIRECTORY)
    add_library(ka_cjson STATIC ${KA_CJSON_SOURCE})
    # The headers are included as <cjson/cJSON.h>, as Debian installs them.
    set(KA_CJSON_INCLUDE ${CMAKE_CURRENT_BINARY_DIR}/cjson-include)
    file(MAKE_DIRECTORY ${KA_CJSON_INCLUDE}/cjson)
    configure_file(${KA_CJSON_DIR}/cJSON.h ${KA_CJSON_INCLUDE}/cjson/cJSON.h COPYONLY)
    target_include_directories(ka_cjson PUBLIC $<BUILD_INTERFACE:${KA_CJSON_INCLUDE}>)
    # Linked into the DLL, not exported from it (cJSON.h exports by default
    # on Windows).
    target_compile_definitions(ka_cjson PUBLIC CJSON_HIDE_SYMBOLS)
    if(NOT MSVC)
        target_compile_options(ka_cjson PRIVATE -w)
    endif()
    add_library(PkgConfig::CJSON ALIAS ka_cjson)
else()
    find_package(cJSON CONFIG QUIET)
    if(NOT TARGET cjson)
        message(FATAL_ERROR "cJSON's source is missing: run scripts/setup.sh (it puts "
                            "Debian's cjson source package under third_party/)")
    endif()
    add_library(PkgConfig::CJSON ALIAS cjson)
endif()

# Eigen is header-only: the cross build uses the Debian headers directly.
find_package(Eigen3 3.3 QUIET NO_MODULE)
if(NOT TARGET Eigen3::Eigen)
    find_path(KA_EIGEN_INCLUDE Eigen/Core PATHS /usr/include/eigen3 NO_CMAKE_FIND_ROOT_PATH
              REQUIRED)
    add_library(Eigen3::Eigen INTERFACE IMPORTED)
    target_include_directories(Eigen3::Eigen INTERFACE ${KA_EIGEN_INCLUDE})
endif()

# Programs and DLLs in one folder, so every test program finds ka_api.dll.
set(CMAKE_RUNTIME_OUTPUT_DIRECTORY ${PROJECT_BINARY_DIR}/bin)

# GoogleTest from Debian's source tree, built for the target.
# Elsewhere tests/CMakeLists.txt finds GoogleTest's CMake package.
set(KA_GTEST_SOURCE /usr/src/googletest CACHE PATH "GoogleTest source tree")
if(KA_BUILD_TESTS AND NOT TARGET GTest::gtest AND EXISTS ${KA_GTEST_SOURCE}/CMakeLists.txt)
    set(BUILD_GMOCK OFF CACHE BOOL "" FORCE)
    set(INSTALL_GTEST OFF CACHE BOOL "" FORCE)
    add_subdirectory(${KA_GTEST_SOURCE} ${PROJECT_BINARY_DIR}/googletest EXCLUDE_FROM_ALL)
    if(NOT TARGET GTest::gtest)
        add_library(GTest::gtest ALIAS gtest)
        add_library(GTest::gtest_main ALIAS gtest_main)
    endif()
endif()

# A fresh Wine prefix takes several seconds to create: it is made here, once
# per build folder, not by each test run.
if(CMAKE_CROSSCOMPILING_EMULATOR AND KA_WINE_PREFIX AND NOT EXISTS ${KA_WINE_PREFIX}/system.reg)
    message(STATUS "Creating the Wine prefix ${KA_WINE_PREFIX}")
    execute_process(COMMAND ${CMAKE_CROSSCOMPILING_EMULATOR} wineboot --init
                    RESULT_VARIABLE rc OUTPUT_QUIET ERROR_QUIET)
    execute_process(COMMAND /usr/bin/env WINEPREFIX=${KA_WINE_PREFIX} /usr/lib/wine/wineserver -w)
    if(NOT EXISTS ${KA_WINE_PREFIX}/system.reg)
        message(WARNING "Wine prefix not created (wineboot: ${rc}); the tests cannot run")
    endif()
endif()

# Called after the libraries are defined: the DLL's names, and the Winsock
# import of both.
function(ka_windows_library shared static)
    # ka_api.dll with the import library ka_api.lib, which both MinGW's
    # linker (-lka_api) and MSVC's take; the DLL carries no version suffix.
    set_target_properties(${shared} PROPERTIES
        PREFIX "" IMPORT_PREFIX "" IMPORT_SUFFIX ".lib" SOVERSION "")
    if(MINGW)
        # ka_api.def lists the exports, for tools that make import libraries.
        set_target_properties(${shared} PROPERTIES LINK_FLAGS
            "-Wl,--no-undefined -Wl,--output-def,${CMAKE_RUNTIME_OUTPUT_DIRECTORY}/ka_api.def")
    else()
        set_target_properties(${shared} PROPERTIES LINK_FLAGS "")
    endif()
    target_link_libraries(${shared} PRIVATE ws2_32)
    target_link_libraries(${static} PUBLIC ws2_32)
endfunction()
