# What our targets are compiled with; each unusual flag carries its reason. Two sets:
#   velacamplix_arithmetic   whatever computes amplitudes: the library and the tests' reference
#   velacamplix_warnings     everything we compile

if("${CMAKE_CXX_FLAGS} ${CMAKE_CXX_FLAGS_RELEASE}" MATCHES "-Ofast|-ffast-math|-funsafe-math")
    message(FATAL_ERROR "velacamplix promises bit-exact results; remove ${CMAKE_MATCH_0} from the compiler flags.")
endif()

find_package(OpenMP REQUIRED COMPONENTS CXX)

add_library(velacamplix_arithmetic INTERFACE)
target_compile_features(velacamplix_arithmetic INTERFACE cxx_std_20)
target_compile_options(
    velacamplix_arithmetic
    INTERFACE
        # A product and a sum round separately, as written. GCC's own default would merge them where it can.
        -ffp-contract=off
        # GCC 12 merges complex products into vfmaddsub in its vectoriser whatever -ffp-contract says. The loops that
        # matter are vectorised by hand over GCC vector types, which it leaves alone.
        -fno-tree-vectorize
        # Notes on how wide vectors are passed between functions; ours never cross the library's boundary.
        -Wno-psabi)

add_library(velacamplix_warnings INTERFACE)
target_compile_options(
    velacamplix_warnings
    INTERFACE -Wall
              -Wextra
              -Wpedantic
              -Wshadow
              -Wnon-virtual-dtor
              -Woverloaded-virtual
              -Wcast-qual
              -Wunused
              -Wdouble-promotion # single precision stays single throughout
              -Wfloat-conversion
              -Wimplicit-fallthrough
              -Wextra-semi
              $<$<CXX_COMPILER_ID:GNU>:-Wduplicated-cond>
              $<$<CXX_COMPILER_ID:GNU>:-Wlogical-op>
              $<$<BOOL:${VELACAMPLIX_WERROR}>:-Werror>)

if(VELACAMPLIX_SANITIZE)
    # Everything in the tree, tests included: an address sanitizer must see the whole program. A first finding ends it.
    add_compile_options(-fsanitize=${VELACAMPLIX_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer -g1 -O1)
    # The sanitizers' own code hides from GCC that something is always set.
    add_compile_options($<$<CXX_COMPILER_ID:GNU>:-Wno-maybe-uninitialized>)
    add_link_options(-fsanitize=${VELACAMPLIX_SANITIZE})
endif()
