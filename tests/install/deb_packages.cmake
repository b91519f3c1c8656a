cmake_minimum_required(VERSION 3.25)
# Builds the Debian packages of the build tree with cpack and checks their
# metadata (dpkg-deb -f), their file lists (dpkg-deb -c), that the binaries
# are stripped, and that the library and development packages unpacked
# together build and run the C consumer through pkg-config. Arguments (-D):
# BUILD_DIR, WORK_DIR, SOURCE_DIR (this folder), PROJECT_DIR, VERSION,
# SIM (ON when ka-sim is packaged), CPACK, DPKG_DEB, OBJDUMP, PKG_CONFIG,
# C_COMPILER.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
ka_run(ignored ${CPACK} -G DEB --config ${BUILD_DIR}/CPackConfig.cmake -B ${WORK_DIR}/out)

set(packages libka-api1 libka-api-dev)
if(SIM)
    list(APPEND packages ka-sim)
endif()
file(GLOB made RELATIVE ${WORK_DIR}/out ${WORK_DIR}/out/*.deb)
list(LENGTH made count)
list(LENGTH packages expected_count)
if(NOT count EQUAL expected_count)
    message(FATAL_ERROR "cpack made ${made}, expected one package each of ${packages}")
endif()

# Each package: the fields it must have, the files it must hold, and the
# pattern every one of its files must match (so that nothing lands in the
# wrong package). Paths as dpkg-deb -c prints them, without the leading "./".
file(GLOB headers RELATIVE ${PROJECT_DIR}/include ${PROJECT_DIR}/include/*.h)
file(GLOB examples RELATIVE ${PROJECT_DIR}/examples ${PROJECT_DIR}/examples/*.c)
list(TRANSFORM headers PREPEND usr/include/)
list(TRANSFORM examples PREPEND usr/share/ka_api/examples/)
set(cmake_dir usr/lib/cmake/ka_api)

set(fields_libka-api1 "Package: libka-api1" "Version: ${VERSION}" "Section: libs"
    "Depends: .*libcjson1" "Depends: .*libstdc\\+\\+6")
set(files_libka-api1 usr/lib/libka_api.so.${VERSION} usr/lib/libka_api.so.1)
set(allowed_libka-api1 "^usr/lib/libka_api\\.so\\.1(\\.[0-9]+\\.[0-9]+)?$")

set(fields_libka-api-dev "Package: libka-api-dev" "Version: ${VERSION}" "Section: libdevel"
    "Depends: libka-api1 \\(= ${VERSION}\\)")
set(files_libka-api-dev usr/lib/libka_api.so usr/lib/pkgconfig/ka_api.pc
    ${cmake_dir}/ka_apiConfig.cmake ${cmake_dir}/ka_apiConfigVersion.cmake
    ${cmake_dir}/ka_apiTargets.cmake ${headers} ${examples})
set(allowed_libka-api-dev
    "^(usr/lib/libka_api\\.so|usr/lib/pkgconfig/ka_api\\.pc|${cmake_dir}/ka_api[A-Za-z-]*\\.cmake|usr/include/[a-z_]+\\.h|usr/share/ka_api/examples/[a-z_]+\\.c)$")

set(fields_ka-sim "Package: ka-sim" "Version: ${VERSION}" "Depends: .*libcjson1")
set(files_ka-sim usr/bin/ka-sim)
set(allowed_ka-sim "^usr/bin/ka-sim$")

set(root ${WORK_DIR}/root)
foreach(package ${packages})
    file(GLOB deb ${WORK_DIR}/out/${package}_${VERSION}_*.deb)
    if(NOT deb)
        message(FATAL_ERROR "no package ${package}_${VERSION}_*.deb among ${made}")
    endif()
    ka_run(control ${DPKG_DEB} -f ${deb})
    foreach(field ${fields_${package}})
        if(NOT control MATCHES "(^|\n)${field}")
            message(FATAL_ERROR "${package}: no field matching '${field}' in\n${control}")
        endif()
    endforeach()

    ka_run(listing ${DPKG_DEB} -c ${deb})
    string(REGEX MATCHALL "[-l][rwxsStT-]+ [^\n]* \\./[^\n]*[^/\n](\n|$)" entries "${listing}")
    set(names "")
    foreach(entry ${entries})
        string(REGEX REPLACE "^.* \\./([^ \n]+).*$" "\\1" name "${entry}")
        list(APPEND names ${name})
        if(NOT name MATCHES "${allowed_${package}}")
            message(FATAL_ERROR "${package} holds ${name}, which belongs elsewhere")
        endif()
    endforeach()
    foreach(file ${files_${package}})
        if(NOT file IN_LIST names)
            message(FATAL_ERROR "${package} lacks ${file}; it holds:\n${listing}")
        endif()
    endforeach()
    ka_run(ignored ${DPKG_DEB} -x ${deb} ${root})
endforeach()

ka_check_stripped(${root}/usr/lib/libka_api.so.${VERSION})
if(SIM)
    ka_check_stripped(${root}/usr/bin/ka-sim)
endif()
# The unpacked tree is a prefix somewhere other than /usr: the pkg-config
# file has to find it from its own location.
ka_check_c_consumer(${root}/usr/lib/pkgconfig ${root}/usr ${WORK_DIR}/c)

file(REMOVE_RECURSE ${WORK_DIR})
