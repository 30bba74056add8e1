# cmake -DSTEP=prefix|cmake_consumer|pkgconfig_consumer|vtk -DPREFIX=... (see CMakeLists.txt)
#       -P install_check.cmake
# One step of checking an install from the outside. "prefix" makes a fresh install; the other
# steps use it.

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

# The consumer must have loaded the installed bundle (not some other one) and computed 1/2 + 1/3.
function(check_consumer_output out)
    if(NOT out MATCHES "^bundle: ([^\n]+)\nsum: RatioTime\\( 5/6 \\)\n$")
        message(FATAL_ERROR "unexpected consumer output:\n${out}")
    endif()
    file(REAL_PATH "${CMAKE_MATCH_1}" loaded)
    file(REAL_PATH "${PREFIX}/${BUNDLE_DIR}" installed)
    if(NOT loaded STREQUAL installed)
        message(FATAL_ERROR "the consumer loaded ${loaded}, not the installed bundle ${installed}")
    endif()
endfunction()

if(STEP STREQUAL "prefix")
    # Fresh, so files left by an earlier install cannot stand in for missing ones.
    file(REMOVE_RECURSE "${PREFIX}")
    run(out ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${PREFIX})
elseif(STEP STREQUAL "cmake_consumer")
    set(build "${WORK_DIR}/cmake_consumer")
    file(REMOVE_RECURSE "${build}")
    run(out ${CMAKE_COMMAND} -S ${CONSUMER_DIR} -B ${build} -G ${GENERATOR} -DCMAKE_MAKE_PROGRAM=${MAKE_PROGRAM}
        -DCMAKE_CXX_COMPILER=${CXX_COMPILER} -DCMAKE_BUILD_TYPE=${BUILD_TYPE} -DCMAKE_PREFIX_PATH=${PREFIX})
    run(out ${CMAKE_COMMAND} --build ${build})
    run(out ${build}/consumer)
    check_consumer_output("${out}")
elseif(STEP STREQUAL "pkgconfig_consumer")
    set(ENV{PKG_CONFIG_PATH} "${PREFIX}/${LIBDIR}/pkgconfig")
    run(flags ${PKG_CONFIG} --cflags --libs video_toolkit)
    run(libdir ${PKG_CONFIG} --variable=libdir video_toolkit)
    run(bundle ${PKG_CONFIG} --variable=bundledir video_toolkit)
    separate_arguments(flags UNIX_COMMAND "${flags}")
    string(STRIP "${libdir}" libdir)
    string(STRIP "${bundle}" bundle)
    set(program "${WORK_DIR}/pkgconfig_consumer")
    run(out ${CXX_COMPILER} -std=c++17 "-DVIDEO_TOOLKIT_BUNDLE_DIR=\"${bundle}\"" ${CONSUMER_DIR}/consumer.cpp
        ${flags} -Wl,-rpath,${libdir} -o ${program})
    run(out ${program})
    check_consumer_output("${out}")
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
