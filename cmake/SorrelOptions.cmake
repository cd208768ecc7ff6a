# What is built. Everything but the library itself is on only when this is the top-level project.
option(SORREL_BUILD_TESTS "Build the tests (needs GoogleTest)" ${PROJECT_IS_TOP_LEVEL})
option(SORREL_BUILD_BENCH "Build the benchmarks (needs Google Benchmark)" ${PROJECT_IS_TOP_LEVEL})
option(SORREL_BUILD_TARGETS "Build the log targets (needs libfmt and the header of xxhash)" ${PROJECT_IS_TOP_LEVEL})
option(SORREL_BUILD_TOOLS "Build the command-line tools (needs CLI11, libfmt and the header of xxhash)" ${PROJECT_IS_TOP_LEVEL})
option(SORREL_BUILD_EXAMPLES "Build the example programs" ${PROJECT_IS_TOP_LEVEL})
option(SORREL_BUILD_FUZZERS "Build the fuzzers (needs clang's libFuzzer)" OFF)

# The library.
option(SORREL_FAST_PATH "Format plain messages without vsnprintf, and keep the process id" ON)

option(SORREL_REQUIRE_DEPENDENCIES "Fail, instead of leaving a part out, when a dependency is missing" OFF)
option(SORREL_WARNINGS_AS_ERRORS "Treat compiler warnings as errors" OFF)
set(SORREL_SANITIZE "" CACHE STRING "Sanitizers to build everything with: address,undefined or thread")
option(SORREL_TEST_UNITY "Compile several test files at once" OFF)
option(SORREL_COVERAGE "Build for gcov" OFF)

if(NOT CMAKE_BUILD_TYPE AND PROJECT_IS_TOP_LEVEL)
    set(CMAKE_BUILD_TYPE RelWithDebInfo CACHE STRING "Build type" FORCE)
endif()

# Finds a package that one part of the build needs. Where it is missing, that part is switched off with one line, or the
# build stops when dependencies are required.
macro(sorrel_part_needs part package)
    if(SORREL_BUILD_${part})
        find_package(${package} QUIET)
        if(NOT ${package}_FOUND)
            if(SORREL_REQUIRE_DEPENDENCIES)
                message(FATAL_ERROR "SORREL_BUILD_${part} needs ${package}, which was not found")
            endif()
            message(STATUS "sorrel: ${package} not found, SORREL_BUILD_${part} is left out")
            set(SORREL_BUILD_${part} OFF)
        endif()
    endif()
endmacro()

sorrel_part_needs(TESTS GTest)
sorrel_part_needs(BENCH benchmark)
foreach(package fmt xxhash)
    sorrel_part_needs(TARGETS ${package})
endforeach()
foreach(package fmt xxhash CLI11)
    sorrel_part_needs(TOOLS ${package})
endforeach()
