# cmake -DSTEP=prefix|vtk -DPREFIX=... (see CMakeLists.txt)
#       -P install_check.cmake
# One step of checking an install from the outside. "prefix" makes a fresh install; "vtk" runs
# the installed vtk, which must find the bundle beside itself.

# Installed programs must run on their RPATHs alone, not on a library path left by the build.
unset(ENV{LD_LIBRARY_PATH})

# Runs the command and puts its standard output in out_var; fails the step unless it exits 0.
function(run out_var)
    execute_process(COMMAND ${ARGN} RESULT_VARIABLE status OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT status EQUAL 0)
        string(REPLACE ";" " " shown "${ARGN}")
        message(FATAL_ERROR "${shown}\nexited ${status}\n--- stdout:\n${out}--- stderr:\n${err}")
    endif()
    set(${out_var} "${out}" PARENT_SCOPE)
endfunction()

if(STEP STREQUAL "prefix")
    # Fresh, so files left by an earlier install cannot stand in for missing ones.
    file(REMOVE_RECURSE "${PREFIX}")
    run(out ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})
elseif(STEP STREQUAL "vtk")
    # Both commands read the bundle, which the installed vtk must find beside itself.
    set(vtk "${PREFIX}/${BINDIR}/vtk")
    run(out ${vtk} --version)
    string(REPLACE "." "\\." version "${VERSION}")
    if(NOT out MATCHES "^vtk ${version} \\(Build [0-9]+-[0-9]+-[0-9a-f]+\\) ")
        message(FATAL_ERROR "unexpected version line: ${out}")
    endif()
    run(out ${vtk} timecode 60.06 --rate 30000/1001)
    if(NOT out STREQUAL "01;00;02\n")
        message(FATAL_ERROR "unexpected timecode: ${out}")
    endif()
else()
    message(FATAL_ERROR "unknown STEP '${STEP}'")
endif()
