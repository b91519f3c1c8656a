# Every exported name carries one of the library's prefixes (besides the
# standard-library template instances a debug build emits), and generic
# helper names stay internal so they cannot clash with an application.
#
#   cmake -DLIB=<libka_api.so or ka_api.dll> [-DOBJDUMP=<objdump for a DLL>]
#         [-DSOURCE_DIR=<source tree>] [-DREFERENCE=<libka_api.so>]
#         -P check_exports.cmake
#
# SOURCE_DIR: the exported C names are exactly the functions declared KA_API
# in the library's headers and sources. REFERENCE: the names are exactly
# those of the Linux library (a DLL is compared with the Linux build).

cmake_minimum_required(VERSION 3.25)

# Exported names of a shared library, one per list entry.
function(exported_names library result)
    if(library MATCHES "\\.dll$")
        if(NOT OBJDUMP)
            set(OBJDUMP objdump)
        endif()
        execute_process(COMMAND ${OBJDUMP} -p ${library} OUTPUT_VARIABLE out RESULT_VARIABLE rc)
        if(NOT rc EQUAL 0)
            message(FATAL_ERROR "${OBJDUMP} -p failed on ${library}")
        endif()
        # The export directory's name table: a header line, then one
        # "\t[   12] name" line per exported name.
        string(REPLACE "\n" ";" lines "${out}")
        set(names "")
        set(in_table FALSE)
        foreach(line IN LISTS lines)
            if(line MATCHES "^\\[Ordinal/Name Pointer\\] Table")
                set(in_table TRUE)
            elseif(in_table AND line MATCHES "^\t\\[ *[0-9]+\\] (.+)$")
                list(APPEND names "${CMAKE_MATCH_1}")
            elseif(in_table)
                break()
            endif()
        endforeach()
    else()
        execute_process(COMMAND nm -D --defined-only ${library} OUTPUT_VARIABLE out
                        RESULT_VARIABLE rc)
        if(NOT rc EQUAL 0)
            message(FATAL_ERROR "nm failed on ${library}")
        endif()
        string(REGEX MATCHALL "[0-9a-fA-F]+ [TDBRVWi] [^\n]+" names "${out}")
        list(TRANSFORM names REPLACE "^[0-9a-fA-F]+ [TDBRVWi] " "")
    endif()
    set(${result} ${names} PARENT_SCOPE)
endfunction()

# The library's own names, comparable across systems: without the linker's
# ELF markers and the standard-library instances, and with the one type
# whose mangling differs, va_list (a pointer to __va_list_tag on x86-64
# Linux, char * on Windows), written as "va_list".
function(own_names names result)
    set(own "")
    foreach(sym IN LISTS names)
        if(sym MATCHES "^(_Z(T[ISV]|Z)?N?K?St|_init$|_fini$|_edata$|_end$|__bss_start$)")
            continue()
        endif()
        string(REPLACE "P13__va_list_tag" "Pva_list" sym "${sym}")
        string(REGEX REPLACE "^(_ZN10KA_Service20ka_set_log_call_backEPFvPKc)Pc" "\\1Pva_list"
               sym "${sym}")
        list(APPEND own "${sym}")
    endforeach()
    list(SORT own)
    set(${result} ${own} PARENT_SCOPE)
endfunction()

# Names in one list and not the other, for the failure report.
function(list_difference a b result)
    set(only ${${a}})
    list(REMOVE_ITEM only ${${b}})
    set(${result} ${only} PARENT_SCOPE)
endfunction()

exported_names(${LIB} names)
if(NOT names)
    message(FATAL_ERROR "no exported names found in ${LIB}")
endif()
set(allowed "^(ka_|KA_|common_json_|parse_|handle_revice_data|MIO_JSON_|socket_|ka_socket_|ka_udp_|thread_|add_str_to_fifo|get_str_from_fifo|get_arm_status_from_string|libalgo_|invoke_libalgo_|invoke_inverse|algo_|default_log|custom_api_log|countLinesInFile|add_lines_to_file|_ZN10KA_Service|_ZNK10KA_Service|_Z(T[ISV]|Z)?N?K?St|_init$|_fini$|_edata|_end|__bss_start)")
set(bad "")
foreach(sym IN LISTS names)
    if(NOT sym MATCHES "${allowed}")
        list(APPEND bad "${sym}")
    endif()
endforeach()
foreach(required ka_init ka_create_robot_arm ka_set_data_common common_json_pack_set handle_revice_data MIO_JSON_Parse)
    if(NOT required IN_LIST names)
        list(APPEND bad "missing:${required}")
    endif()
endforeach()
foreach(internal cross rotx matrix_m mat_mult)
    if(internal IN_LIST names)
        list(APPEND bad "leaked:${internal}")
    endif()
endforeach()

own_names("${names}" own)

if(SOURCE_DIR)
    # Declarations start a line with KA_API and name the function before the
    # first "(".
    set(declared "")
    foreach(folder include core commands algo service)
        file(GLOB files ${SOURCE_DIR}/${folder}/*.h ${SOURCE_DIR}/${folder}/*.cpp)
        foreach(file IN LISTS files)
            file(STRINGS ${file} lines REGEX "^(extern \"C\" )?KA_API [^(]*\\(")
            foreach(line IN LISTS lines)
                if(line MATCHES "^[^(]*[ *]([A-Za-z_][A-Za-z0-9_]*)\\(")
                    list(APPEND declared ${CMAKE_MATCH_1})
                endif()
            endforeach()
        endforeach()
    endforeach()
    list(REMOVE_DUPLICATES declared)
    set(exported_c ${own})
    list(FILTER exported_c EXCLUDE REGEX "^_Z")
    list_difference(declared exported_c unexported)
    list_difference(exported_c declared undeclared)
    foreach(sym IN LISTS unexported)
        list(APPEND bad "declared KA_API, not exported:${sym}")
    endforeach()
    foreach(sym IN LISTS undeclared)
        list(APPEND bad "exported, not declared KA_API:${sym}")
    endforeach()
endif()

if(REFERENCE AND EXISTS ${REFERENCE})
    exported_names(${REFERENCE} reference_names)
    own_names("${reference_names}" reference)
    list_difference(reference own missing)
    list_difference(own reference extra)
    foreach(sym IN LISTS missing)
        list(APPEND bad "exported by ${REFERENCE} only:${sym}")
    endforeach()
    foreach(sym IN LISTS extra)
        list(APPEND bad "exported by ${LIB} only:${sym}")
    endforeach()
endif()

if(bad)
    list(JOIN bad "\n  " report)
    message(FATAL_ERROR "unexpected exports:\n  ${report}")
endif()
list(LENGTH own count)
message(STATUS "${LIB}: ${count} exported names as expected")
if(REFERENCE AND NOT EXISTS ${REFERENCE})
    # ctest reports this as a skipped test.
    message(STATUS "no Linux library to compare with: ${REFERENCE} does not exist")
endif()
