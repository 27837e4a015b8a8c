# What `cmake --install` leaves behind: headers, the libraries of every level, a CMake package, a pkg-config file.
# The result can be moved: every path in it is relative to the place of the file that says it.

include(CMakePackageConfigHelpers)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/velacamplix")

install(DIRECTORY include/velacamplix DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}" FILES_MATCHING PATTERN "*.hpp")
install(TARGETS velacamplix EXPORT velacamplixTargets LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        INCLUDES DESTINATION "${CMAKE_INSTALL_INCLUDEDIR}")
foreach(level IN LISTS velacamplix_levels)
    string(REPLACE x86-64- velacamplix_ target ${level})
    install(TARGETS ${target} LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}/glibc-hwcaps/${level}" NAMELINK_SKIP)
endforeach()

install(EXPORT velacamplixTargets NAMESPACE velacamplix:: DESTINATION "${package_dir}")
configure_package_config_file(
    cmake/velacamplixConfig.cmake.in "${PROJECT_BINARY_DIR}/velacamplixConfig.cmake"
    INSTALL_DESTINATION "${package_dir}" NO_SET_AND_CHECK_MACRO)
write_basic_package_version_file("${PROJECT_BINARY_DIR}/velacamplixConfigVersion.cmake"
                                 COMPATIBILITY SameMinorVersion)
install(FILES "${PROJECT_BINARY_DIR}/velacamplixConfig.cmake" "${PROJECT_BINARY_DIR}/velacamplixConfigVersion.cmake"
              cmake/velacamplix_thrust.cmake DESTINATION "${package_dir}")

# From lib/pkgconfig back to the prefix, for a copy that has been moved.
file(RELATIVE_PATH pkgconfig_to_prefix "/prefix/${CMAKE_INSTALL_LIBDIR}/pkgconfig" "/prefix")
set(pkgconfig_thrust_flag "")
if(NOT VELACAMPLIX_THRUST_INCLUDE_DIR STREQUAL "/usr/include")
    set(pkgconfig_thrust_flag "-I${VELACAMPLIX_THRUST_INCLUDE_DIR} ")
endif()
configure_file(cmake/velacamplix.pc.in "${PROJECT_BINARY_DIR}/velacamplix.pc" @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/velacamplix.pc" DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig")
