# Makes the library from the collected concepts: at the processor's baseline and, on x86-64, again for two wider
# instruction sets. All share one soname and stand where the dynamic loader looks for the best a machine can do:
#   lib/libvelacamplix.so.0   lib/glibc-hwcaps/x86-64-v3/libvelacamplix.so.0   lib/glibc-hwcaps/x86-64-v4/...
# The build tree has the same shape, so tests run what a user would run.

set(VELACAMPLIX_LIBRARY_DIR "${PROJECT_BINARY_DIR}/lib")
get_property(velacamplix_sources GLOBAL PROPERTY velacamplix_sources)
set(velacamplix_export_map "${PROJECT_SOURCE_DIR}/cmake/export.map")

# The one file with fused multiply-adds, which it writes out where -mfma allows them.
set_source_files_properties(
    "${PROJECT_SOURCE_DIR}/src/statevector/kernels/fused_matrix.cpp"
    PROPERTIES COMPILE_OPTIONS "$<$<BOOL:$<TARGET_PROPERTY:velacamplix_has_fma>>:-mfma>")

# What one object file of the library, at any level, is compiled with.
function(velacamplix_compile_library target level)
    target_include_directories(${target} PRIVATE "${PROJECT_SOURCE_DIR}/src")
    target_include_directories(
        ${target} PUBLIC "$<BUILD_INTERFACE:${PROJECT_SOURCE_DIR}/include>" "$<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>")
    target_compile_definitions(${target} PRIVATE "VELACAMPLIX_INSTRUCTION_SET=\"${level}\"")
    target_compile_features(${target} PUBLIC cxx_std_20)
    target_link_libraries(
        ${target}
        PUBLIC velacamplix::thrust
        PRIVATE $<BUILD_INTERFACE:velacamplix_arithmetic> $<BUILD_INTERFACE:velacamplix_warnings> OpenMP::OpenMP_CXX)
    target_compile_options(
        ${target}
        PRIVATE
            $<$<NOT:$<CONFIG:Debug>>:-O3>
            # Calls between our own exported functions go straight there: nobody may replace one from outside.
            -fno-semantic-interposition)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON CXX_EXTENSIONS OFF)
endfunction()

function(velacamplix_link_library target)
    target_link_options(${target} PRIVATE "LINKER:--version-script=${velacamplix_export_map}")
    if(NOT VELACAMPLIX_SANITIZE)
        # An undefined symbol is an error here, not at a user's first call. (Clang leaves a sanitizer's own to the program.)
        target_link_options(${target} PRIVATE LINKER:--no-undefined)
    endif()
    set_target_properties(
        ${target}
        PROPERTIES OUTPUT_NAME velacamplix
                   LINK_DEPENDS "${velacamplix_export_map}"
                   SOVERSION ${PROJECT_VERSION_MAJOR})
endfunction()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
    set(velacamplix_baseline x86-64)
else()
    set(velacamplix_baseline "${CMAKE_SYSTEM_PROCESSOR}")
endif()

# The baseline's objects serve twice: in the shared library, and in an archive through which tests reach what the
# shared library hides.
add_library(velacamplix_objects OBJECT ${velacamplix_sources})
velacamplix_compile_library(velacamplix_objects ${velacamplix_baseline})

add_library(velacamplix SHARED $<TARGET_OBJECTS:velacamplix_objects>)
add_library(velacamplix::velacamplix ALIAS velacamplix)
velacamplix_compile_library(velacamplix ${velacamplix_baseline})
velacamplix_link_library(velacamplix)
set_target_properties(
    velacamplix
    PROPERTIES VERSION ${PROJECT_VERSION}
               LINKER_LANGUAGE CXX
               LIBRARY_OUTPUT_DIRECTORY "${VELACAMPLIX_LIBRARY_DIR}")

add_library(velacamplix_hidden STATIC EXCLUDE_FROM_ALL $<TARGET_OBJECTS:velacamplix_objects>)
target_link_libraries(velacamplix_hidden PUBLIC velacamplix::thrust OpenMP::OpenMP_CXX)
set_target_properties(velacamplix_hidden PROPERTIES LINKER_LANGUAGE CXX)

set(velacamplix_levels "")
if(VELACAMPLIX_LEVELS)
    set(velacamplix_levels x86-64-v3 x86-64-v4)
endif()
foreach(level IN LISTS velacamplix_levels)
    string(REPLACE x86-64- velacamplix_ target ${level})
    add_library(${target} SHARED ${velacamplix_sources})
    velacamplix_compile_library(${target} ${level})
    velacamplix_link_library(${target})
    # -mno-fma: without fused instructions none can slip in. (The 512-bit set brings its own, which the flag does not
    # reach; a test disassembles every library and finds none but where they are written out.)
    target_compile_options(${target} PRIVATE -march=${level} -mno-fma)
    set_target_properties(${target} PROPERTIES velacamplix_has_fma ON)
    # The directory needs the file of the soname alone.
    set_target_properties(
        ${target} PROPERTIES VERSION ${PROJECT_VERSION_MAJOR}
                             LIBRARY_OUTPUT_DIRECTORY "${VELACAMPLIX_LIBRARY_DIR}/glibc-hwcaps/${level}")
    # Whatever is linked against the library may load this one in its place.
    add_dependencies(velacamplix ${target})
endforeach()
if(TARGET velacamplix_v4)
    # Left to itself GCC would keep to 256 bits, out of fear of the lower clock of early 512-bit processors.
    target_compile_options(velacamplix_v4 PRIVATE -mprefer-vector-width=512)
endif()
