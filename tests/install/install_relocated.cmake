cmake_minimum_required(VERSION 3.25)
# Installs the built library (components runtime and dev) into a staging
# prefix, moves that prefix elsewhere, and builds and runs two programs
# against the moved copy: a C one through pkg-config and a C++ one through
# find_package(ka_api) and ka::api. Arguments (-D): BUILD_DIR, WORK_DIR,
# SOURCE_DIR (this folder), VERSION, LIBDIR, INCLUDEDIR, DATADIR, PKG_CONFIG,
# C_COMPILER, CXX_COMPILER, GENERATOR, OBJDUMP, PROJECT_DIR.
include(${CMAKE_CURRENT_LIST_DIR}/common.cmake)

file(REMOVE_RECURSE ${WORK_DIR})
set(stage ${WORK_DIR}/stage)
set(moved ${WORK_DIR}/moved/elsewhere)
foreach(component runtime dev)
    ka_run(ignored ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${stage} --component
           ${component} --strip)
endforeach()

# Nothing installed may name the place it was installed to or built in.
file(GLOB_RECURSE text_files ${stage}/*.cmake ${stage}/*.pc)
foreach(file ${text_files})
    file(READ ${file} text)
    foreach(path ${stage} ${BUILD_DIR} ${PROJECT_DIR})
        string(FIND "${text}" "${path}" at)
        if(NOT at EQUAL -1)
            message(FATAL_ERROR "${file} names ${path}")
        endif()
    endforeach()
endforeach()
set(library ${stage}/${LIBDIR}/libka_api.so.${VERSION})
ka_check_stripped(${library})
ka_run(dynamic ${OBJDUMP} -p ${library})
if(dynamic MATCHES "R(UN)?PATH")
    message(FATAL_ERROR "the installed library keeps a search path:\n${dynamic}")
endif()
foreach(file ${LIBDIR}/libka_api.so.${VERSION} ${LIBDIR}/libka_api.so ${INCLUDEDIR}/ka_api.h
             ${INCLUDEDIR}/ka_algo.h ${INCLUDEDIR}/ka_service.h ${LIBDIR}/pkgconfig/ka_api.pc
             ${LIBDIR}/cmake/ka_api/ka_apiConfig.cmake ${DATADIR}/ka_api/examples/quick_tour.c)
    if(NOT EXISTS ${stage}/${file})
        message(FATAL_ERROR "not installed: ${file}")
    endif()
endforeach()
# cmake --install writes the soname link as a symbolic link.
if(NOT IS_SYMLINK ${stage}/${LIBDIR}/libka_api.so.1)
    message(FATAL_ERROR "no soname link ${LIBDIR}/libka_api.so.1")
endif()

get_filename_component(parent ${moved} DIRECTORY)
file(MAKE_DIRECTORY ${parent})
file(RENAME ${stage} ${moved})

ka_check_c_consumer(${moved}/${LIBDIR}/pkgconfig ${moved} ${WORK_DIR}/c)

ka_run(ignored ${CMAKE_COMMAND} -S ${SOURCE_DIR}/consumer_cpp -B ${WORK_DIR}/cpp -G ${GENERATOR}
       -DCMAKE_BUILD_TYPE=Release -DCMAKE_CXX_COMPILER=${CXX_COMPILER}
       -DCMAKE_PREFIX_PATH=${moved} -DCMAKE_FIND_USE_PACKAGE_REGISTRY=OFF
       -DKA_EXPECTED_PREFIX=${moved} -DKA_EXPECTED_VERSION=${VERSION})
ka_run(ignored ${CMAKE_COMMAND} --build ${WORK_DIR}/cpp)
ka_run(output ${WORK_DIR}/cpp/consumer)
ka_check_loaded_from("${output}" "${moved}")

file(REMOVE_RECURSE ${WORK_DIR})
