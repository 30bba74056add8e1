# cmake -DBUNDLE=<bundle folder> -DNM=nm -P check_bundle.cmake
# The bundle as shipped: the library's dynamic symbol table defines exactly the seven entry points,
# every chunk is a stripped Lua 5.1 chunk with the 64-bit header, and VERSION.build has its form.
execute_process(COMMAND ${NM} -D --defined-only --format=posix ${BUNDLE}/libvideo_toolkit.so
                OUTPUT_VARIABLE table RESULT_VARIABLE failed)
if(failed)
    message(FATAL_ERROR "nm failed on ${BUNDLE}/libvideo_toolkit.so")
endif()
string(REGEX MATCHALL "(^|\n)[^ \n]+" names "${table}")
list(TRANSFORM names STRIP)
list(SORT names)
set(expected KyVideoPlayerWin_nativeFuncs_L KyVideoPlayerWin_new_L KyVideoPlayerWin_shutdown
    RatioTime_nativeFuncs_L VideoSupport_nativeFuncs_L luaopen_RatioTime registerKyViewWinVideoPlayer_L)
if(NOT names STREQUAL expected)
    message(FATAL_ERROR "exports are \"${names}\", expected \"${expected}\"")
endif()

file(GLOB chunks ${BUNDLE}/resources/LUA/*)
if(NOT chunks)
    message(FATAL_ERROR "no chunks in ${BUNDLE}/resources/LUA")
endif()
foreach(chunk IN LISTS chunks)
    file(READ ${chunk} header LIMIT 12 HEX)
    if(NOT header STREQUAL "1b4c75615100010408040800")
        message(FATAL_ERROR "${chunk} has header ${header}")
    endif()
    get_filename_component(name ${chunk} NAME)
    if(NOT name MATCHES "^(\\$[A-Z][A-Z0-9_]*)+\\.LUA$")
        message(FATAL_ERROR "${name} does not follow the resource name rule")
    endif()
endforeach()

file(READ ${BUNDLE}/VERSION.build build)
string(REPEAT "[0-9]" 8 date)
string(REPEAT "[0-9]" 4 time)
string(REPEAT "[0-9a-f]" 7 revision)
if(NOT build MATCHES "^${date}-${time}-${revision}\n$")
    message(FATAL_ERROR "VERSION.build is \"${build}\"")
endif()
