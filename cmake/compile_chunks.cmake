# cmake -DLUAC=luac5.1 -DCHUNKS="a.lua;b.lua" -DDEST=<bundle>/resources/LUA -P compile_chunks.cmake
# Compiles each chunk with `luac -s` and stores it under its resource name: every letter upper case,
# a '$' before each letter that was upper case ("VideoTime.lua" -> "$VIDEO$TIME.LUA").
file(MAKE_DIRECTORY "${DEST}")
foreach(chunk IN LISTS CHUNKS)
    get_filename_component(fileName "${chunk}" NAME)
    string(REGEX REPLACE "([A-Z])" "$\\1" stored "${fileName}")
    string(TOUPPER "${stored}" stored)
    execute_process(COMMAND "${LUAC}" -s -o "${DEST}/${stored}" "${chunk}" RESULT_VARIABLE failed)
    if(failed)
        message(FATAL_ERROR "luac failed on ${chunk}")
    endif()
endforeach()
