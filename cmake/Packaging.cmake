# make install: the host library and headers, the toolkit bundle, vtk, a CMake package
# (video_toolkit::kyhost) and a pkg-config file (video_toolkit.pc).
include(CMakePackageConfigHelpers)

install(TARGETS kyhost kywin32 kymedia EXPORT video_toolkitTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/video_toolkit)
install(DIRECTORY ${PROJECT_SOURCE_DIR}/host/include/ ${PROJECT_SOURCE_DIR}/platform/include/
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/video_toolkit)
install(TARGETS kymediaprobe LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS vtk RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
install(TARGETS video_toolkit LIBRARY DESTINATION ${VTK_INSTALL_BUNDLE_DIR})
install(DIRECTORY ${VTK_BUNDLE_DIR}/ DESTINATION ${VTK_INSTALL_BUNDLE_DIR} PATTERN "*.so" EXCLUDE)

install(EXPORT video_toolkitTargets NAMESPACE video_toolkit::
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/video_toolkit)
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/video_toolkitConfig.cmake.in
    ${PROJECT_BINARY_DIR}/video_toolkitConfig.cmake
    INSTALL_DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/video_toolkit
    PATH_VARS VTK_INSTALL_BUNDLE_DIR)
write_basic_package_version_file(${PROJECT_BINARY_DIR}/video_toolkitConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${PROJECT_BINARY_DIR}/video_toolkitConfig.cmake ${PROJECT_BINARY_DIR}/video_toolkitConfigVersion.cmake
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/cmake/video_toolkit)

# The .pc file finds the prefix from its own folder, so an install with --prefix (not the configured
# CMAKE_INSTALL_PREFIX) or a moved install tree still points consumers at the right files.
cmake_path(RELATIVE_PATH CMAKE_INSTALL_PREFIX BASE_DIRECTORY ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig
    OUTPUT_VARIABLE VTK_PC_TO_PREFIX)
configure_file(${PROJECT_SOURCE_DIR}/cmake/video_toolkit.pc.in ${PROJECT_BINARY_DIR}/video_toolkit.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/video_toolkit.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
