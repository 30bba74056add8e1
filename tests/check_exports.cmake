# cmake -DLIBRARY=<.so> -DHEADERS=<folder;...> -DCOUNT=<n> -DNM=nm -P check_exports.cmake
# A shared library exports what its public headers declare and nothing else: every part of every
# exported name (std's template instances, which the compiler exports with them, aside) is a word
# of those headers, and there are COUNT such functions and data, so a new export is a deliberate
# change here.
cmake_policy(VERSION 3.21)
execute_process(COMMAND ${NM} -D --defined-only --demangle --format=posix ${LIBRARY}
                OUTPUT_VARIABLE table RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "nm failed on ${LIBRARY}")
endif()
set(words "")
foreach(folder IN LISTS HEADERS)
    file(GLOB headers ${folder}/*.h)
    foreach(header IN LISTS headers)
        file(READ ${header} text)
        string(REGEX MATCHALL "[A-Za-z_][A-Za-z0-9_]*" found "${text}")
        list(APPEND words ${found})
    endforeach()
endforeach()
list(REMOVE_DUPLICATES words)

string(REPLACE "\n" ";" lines "${table}")
set(names "")
foreach(line IN LISTS lines)
    # posix format: the name, its type letter, address and size; the name itself may hold blanks.
    string(REGEX REPLACE " [A-Za-z] [0-9a-f]*( [0-9a-f]*)? *$" "" name "${line}")
    # What the compiler makes for a type or a static (type records, guards) must name public words
    # too, but is not counted: a sanitizer's build emits type records that another build leaves out.
    set(made FALSE)
    if(name MATCHES "^(typeinfo name for|typeinfo for|vtable for|guard variable for) ")
        set(made TRUE)
        string(REGEX REPLACE "^(typeinfo name for|typeinfo for|vtable for|guard variable for) " "" name "${name}")
    endif()
    # A sanitizer's build adds its own markers beside each global (__odr_asan.<name>).
    if(name STREQUAL "" OR name MATCHES "^([^(]* )?(std|__gnu_cxx)::|^(_edata|_end|__bss_start|_init|_fini)$|^__(odr_asan|asan|ubsan|tsan|sanitizer)[._]")
        continue()
    endif()
    string(REGEX REPLACE "\\(.*" "" qualified "${name}")
    string(REGEX REPLACE "\\[abi:[a-z0-9]+\\]" "" qualified "${qualified}")
    string(REPLACE "::" ";" parts "${qualified}")
    foreach(part IN LISTS parts)
        string(REGEX REPLACE "^~" "" part "${part}")
        if(NOT part IN_LIST words)
            message(FATAL_ERROR "${LIBRARY} exports ${name}, which its public headers do not declare")
        endif()
    endforeach()
    if(NOT made)
        list(APPEND names "${name}")
    endif()
endforeach()
list(REMOVE_DUPLICATES names)
list(LENGTH names count)
if(NOT count EQUAL COUNT)
    list(SORT names)
    list(JOIN names "\n  " shown)
    message(FATAL_ERROR "${LIBRARY} exports ${count} names, expected ${COUNT}:\n  ${shown}")
endif()
