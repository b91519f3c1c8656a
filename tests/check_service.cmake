# Every flat function meant to have a KA_Service member has one, in the
# header and in the shared library, and nothing else does. The member's
# signature is checked by the compiler (service/ka_service.cpp builds each
# definition from the flat function's type); this checks the names.
#
#   cmake -DINCLUDE=<include dir> -DLIB=<libka_api.so> -P check_service.cmake

cmake_minimum_required(VERSION 3.25)

# The size of the facade as documented; a new flat function changes it on
# purpose, together with its member.
set(expected_total 257)

# Flat functions without a member: commands left out of the facade, the
# internal exports, and the logging entry points. The record forms are
# reached through overloads of their base names (the name without "_new").
set(excluded
    ka_set_plan_speed ka_set_usb ka_run_project ka_send_project_lock
    ka_algo_judgment_overpos ka_algo_arm_state_set
    ka_get_arm_dof ka_get_cur_time ka_set_data_common ka_get_data_common
    ka_sync_robot_info countLinesInFile add_lines_to_file)
set(excluded_pattern "(_block|_nblock)$|^ka_log(_[a-z]+)?$")
set(record_forms ka_start_multi_drag_teach_new ka_set_force_position_new)

set(flat "")
foreach(header ka_api.h ka_algo.h)
    file(STRINGS ${INCLUDE}/${header} declarations REGEX "^KA_API ")
    foreach(line IN LISTS declarations)
        if(line MATCHES "[ *]([A-Za-z_][A-Za-z0-9_]*)\\(")
            list(APPEND flat ${CMAKE_MATCH_1})
        endif()
    endforeach()
endforeach()
if(NOT flat)
    message(FATAL_ERROR "no KA_API declarations found under ${INCLUDE}")
endif()

# Expected member names; an overloaded name appears twice.
set(expected "")
foreach(name IN LISTS flat)
    if(name IN_LIST excluded OR name MATCHES "${excluded_pattern}")
        continue()
    endif()
    if(name IN_LIST record_forms)
        string(REGEX REPLACE "_new$" "" name ${name})
    endif()
    list(APPEND expected ${name})
endforeach()

# Members declared in the header: "decltype(::name) name;" (its own name
# only), or a written-out declaration for the by-value and overload forms.
file(READ ${INCLUDE}/ka_service.h header)
string(REGEX REPLACE "/\\*([^*]|\\*+[^*/])*\\*+/" "" header "${header}")
string(REGEX REPLACE "//[^\n]*" "" header "${header}")
string(REGEX REPLACE "#[^\n]*" "" header "${header}")
string(REGEX REPLACE "[ \t\n]+" " " header "${header}")
set(declared "")
set(bad "")
string(REGEX MATCHALL "decltype\\(::[A-Za-z0-9_]+\\) [A-Za-z0-9_]+" typed "${header}")
foreach(item IN LISTS typed)
    string(REGEX MATCH "decltype\\(::([A-Za-z0-9_]+)\\) ([A-Za-z0-9_]+)" _ "${item}")
    if(NOT CMAKE_MATCH_1 STREQUAL CMAKE_MATCH_2)
        list(APPEND bad "${CMAKE_MATCH_2} takes the type of ${CMAKE_MATCH_1}")
    endif()
    list(APPEND declared ${CMAKE_MATCH_2})
endforeach()
# What remains of the class body after the typed declarations are written-out
# declarations, one "name(" each.
string(REGEX REPLACE "decltype\\(::[A-Za-z0-9_]+\\) [A-Za-z0-9_]+;" "" written "${header}")
string(REGEX MATCH "class KA_API KA_Service {.*}" written "${written}")
string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*\\(" written "${written}")
foreach(item IN LISTS written)
    string(REPLACE "(" "" item "${item}")
    list(APPEND declared ${item})
endforeach()

execute_process(COMMAND nm -D -C --defined-only ${LIB} OUTPUT_VARIABLE symbols
                RESULT_VARIABLE rc)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "nm failed on ${LIB}")
endif()
string(REGEX MATCHALL "KA_Service::[A-Za-z0-9_]+\\(" defined "${symbols}")
list(TRANSFORM defined REPLACE "KA_Service::([A-Za-z0-9_]+)\\(" "\\1")

# Compare the three lists name by name, counting overloads.
set(all ${expected} ${declared} ${defined})
list(REMOVE_DUPLICATES all)
foreach(name IN LISTS all)
    foreach(source expected declared defined)
        set(copies ${${source}})
        list(FILTER copies INCLUDE REGEX "^${name}$")
        list(LENGTH copies count_${source})
    endforeach()
    if(NOT count_declared EQUAL count_expected)
        list(APPEND bad "${name}: ${count_declared} declared, ${count_expected} expected")
    endif()
    if(NOT count_defined EQUAL count_expected)
        list(APPEND bad "${name}: ${count_defined} exported, ${count_expected} expected")
    endif()
endforeach()

list(LENGTH expected total)
if(NOT total EQUAL expected_total)
    list(APPEND bad "${total} members expected from the flat API, documented ${expected_total}")
endif()
if(bad)
    list(JOIN bad "\n  " report)
    message(FATAL_ERROR "KA_Service does not match the flat API:\n  ${report}")
endif()
message(STATUS "KA_Service: ${total} members, one per flat function")
