# Finds Thrust, of which thrust::complex alone is used, and makes the target velacamplix::thrust.
# Part of this build and, installed, of the package configuration on a consumer's machine.
#
# thrust::complex is part of every exported symbol's name, and a GPU toolkit's newer Thrust gives it another one. So
# the system's Thrust is asked for first, and it is put on the include path by itself, in a directory that holds only
# a link to it: naming /usr/include would have no effect, since compilers search that last whatever one says.

if(NOT TARGET velacamplix::thrust)
    find_path(VELACAMPLIX_THRUST_INCLUDE_DIR thrust/complex.h PATHS /usr/include NO_DEFAULT_PATH)
    find_path(VELACAMPLIX_THRUST_INCLUDE_DIR thrust/complex.h)
    mark_as_advanced(VELACAMPLIX_THRUST_INCLUDE_DIR)

    set(velacamplix_thrust_problem "")
    if(NOT VELACAMPLIX_THRUST_INCLUDE_DIR)
        string(
            CONCAT velacamplix_thrust_problem
                   "thrust/complex.h was not found; on Debian, apt-get install libthrust-dev. For one that stands elsewhere "
                   "set VELACAMPLIX_THRUST_INCLUDE_DIR to the directory that contains thrust/.")
    else()
        file(STRINGS "${VELACAMPLIX_THRUST_INCLUDE_DIR}/thrust/version.h" line REGEX "^#define THRUST_VERSION +[0-9]+")
        string(REGEX MATCH "[0-9]+" VELACAMPLIX_THRUST_VERSION "${line}")
        if(NOT VELACAMPLIX_THRUST_VERSION OR VELACAMPLIX_THRUST_VERSION GREATER_EQUAL 200000)
            string(
                CONCAT velacamplix_thrust_problem
                       "Thrust in ${VELACAMPLIX_THRUST_INCLUDE_DIR} has THRUST_VERSION '${VELACAMPLIX_THRUST_VERSION}'; "
                       "velacamplix needs version 1 (below 200000), as later ones give thrust::complex another symbol "
                       "name. Set VELACAMPLIX_THRUST_INCLUDE_DIR to one.")
        endif()
    endif()

    if(NOT velacamplix_thrust_problem)
        set(velacamplix_thrust_alone "${CMAKE_BINARY_DIR}/velacamplix-thrust")
        file(MAKE_DIRECTORY "${velacamplix_thrust_alone}")
        file(CREATE_LINK "${VELACAMPLIX_THRUST_INCLUDE_DIR}/thrust" "${velacamplix_thrust_alone}/thrust" SYMBOLIC)

        add_library(velacamplix::thrust INTERFACE IMPORTED GLOBAL)
        # Not as a system directory: CPATH, by which toolkits like to offer their headers, is searched before those.
        set_target_properties(velacamplix::thrust PROPERTIES SYSTEM OFF IMPORTED_NO_SYSTEM ON)
        target_include_directories(velacamplix::thrust INTERFACE "${velacamplix_thrust_alone}")
        # Header-only use on the CPU; without it the headers ask for a GPU toolkit.
        target_compile_definitions(velacamplix::thrust INTERFACE THRUST_DEVICE_SYSTEM=THRUST_DEVICE_SYSTEM_CPP)
    elseif(NOT CMAKE_FIND_PACKAGE_NAME)
        message(FATAL_ERROR "${velacamplix_thrust_problem}")
    endif()
endif()
