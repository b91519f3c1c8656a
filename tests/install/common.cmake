# Helpers shared by the install and package checks (run with cmake -P).

# Runs a command; stops the check with its output when it fails. The
# standard output is returned in <out>.
function(ka_run out)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE rc OUTPUT_VARIABLE stdout
                    ERROR_VARIABLE stderr)
    if(NOT rc EQUAL 0)
        string(REPLACE ";" " " shown "${ARGN}")
        message(FATAL_ERROR "failed (${rc}): ${shown}\n${stdout}\n${stderr}")
    endif()
    set(${out} "${stdout}" PARENT_SCOPE)
endfunction()

# The consumer reports the file the library was loaded from; it must lie
# under <prefix>, or the program ran against another copy.
function(ka_check_loaded_from output prefix)
    string(REGEX MATCH "loaded from ([^\n]*)" line "${output}")
    set(path "${CMAKE_MATCH_1}")
    get_filename_component(path "${path}" REALPATH)
    get_filename_component(prefix "${prefix}" REALPATH)
    string(FIND "${path}" "${prefix}/" at)
    if(NOT at EQUAL 0)
        message(FATAL_ERROR "library loaded from '${path}', expected under ${prefix}\n${output}")
    endif()
endfunction()

# Compiles and runs the C consumer with the flags that pkg-config gives from
# the .pc files in <pc_dir> only; the library is found at run time through
# the libdir variable of the same file.
function(ka_check_c_consumer pc_dir prefix work)
    set(ENV{PKG_CONFIG_LIBDIR} "${pc_dir}")
    set(ENV{PKG_CONFIG_PATH} "")
    ka_run(version ${PKG_CONFIG} --modversion ka_api)
    string(STRIP "${version}" version)
    if(NOT version STREQUAL "${VERSION}")
        message(FATAL_ERROR "pkg-config reports version '${version}', expected ${VERSION}")
    endif()
    ka_run(flags ${PKG_CONFIG} --cflags --libs ka_api)
    ka_run(libdir ${PKG_CONFIG} --variable=libdir ka_api)
    string(STRIP "${libdir}" libdir)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    file(MAKE_DIRECTORY ${work})
    ka_run(ignored ${C_COMPILER} -Wall -Wextra -Werror ${SOURCE_DIR}/consumer_c/consumer.c
           ${flags} -lm -o ${work}/consumer_c)
    set(ENV{LD_LIBRARY_PATH} "${libdir}")
    ka_run(output ${work}/consumer_c)
    unset(ENV{LD_LIBRARY_PATH})
    ka_check_loaded_from("${output}" "${prefix}")
endfunction()

# The ELF file carries no DWARF debug information.
function(ka_check_stripped file)
    ka_run(headers ${OBJDUMP} -h ${file})
    if(headers MATCHES "\\.debug_info")
        message(FATAL_ERROR "${file} is not stripped: it has a .debug_info section")
    endif()
endfunction()
