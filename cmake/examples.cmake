# Each file of examples/cpp is a program of its own, as a reader would write it, and a test: it must run and succeed.
file(GLOB examples CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/examples/cpp/*.cpp")
foreach(file IN LISTS examples)
    get_filename_component(name "${file}" NAME_WE)
    add_executable(example_${name} "${file}")
    target_link_libraries(example_${name} PRIVATE velacamplix::velacamplix velacamplix_warnings)
    set_target_properties(example_${name} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/examples")
    add_test(NAME example_${name} COMMAND example_${name})
endforeach()
