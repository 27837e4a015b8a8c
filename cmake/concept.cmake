# A concept is a group of files with one name in a folder of src/; the ending tells the role:
#   NAME.hpp NAME.inl   found through includes
#   NAME.cpp            part of the library
#   NAME.test.cpp       part of the folder's test program
#   NAME.perf.cpp       a benchmark of its own, bench_NAME
# Adding the files is all it takes. They are only collected here; library.cmake, tests/ and benchmarks/ make the
# targets.

# Adds every concept of the folders, given relative to the project.
function(velacamplix_concepts)
    foreach(folder IN LISTS ARGV)
        # A file that appears or goes makes the build configure itself again.
        file(GLOB files CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/${folder}/*.cpp")
        foreach(file IN LISTS files)
            if(file MATCHES "\\.test\\.cpp$")
                velacamplix_add_test_source("${file}")
            elseif(file MATCHES "\\.perf\\.cpp$")
                set_property(GLOBAL APPEND PROPERTY velacamplix_benchmarks "${file}")
            else()
                set_property(GLOBAL APPEND PROPERTY velacamplix_sources "${file}")
            endif()
        endforeach()
        list(APPEND taken ${files})
    endforeach()

    # A folder that is not listed would be neither compiled nor tested, and nobody would notice.
    file(GLOB_RECURSE forgotten CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/src/*.cpp")
    list(REMOVE_ITEM forgotten ${taken})
    if(forgotten)
        message(FATAL_ERROR "velacamplix_concepts() in CMakeLists.txt lacks the folder of: ${forgotten}")
    endif()
endfunction()

# Collects a test source under its folder's name: src/statevector/kernels/one_qubit.test.cpp belongs to "kernels".
function(velacamplix_add_test_source file)
    get_filename_component(folder "${file}" DIRECTORY)
    get_filename_component(group "${folder}" NAME)
    get_property(groups GLOBAL PROPERTY velacamplix_test_groups)
    if(NOT group IN_LIST groups)
        set_property(GLOBAL APPEND PROPERTY velacamplix_test_groups "${group}")
    endif()
    set_property(GLOBAL APPEND PROPERTY velacamplix_tests_of_${group} "${file}")
endfunction()
