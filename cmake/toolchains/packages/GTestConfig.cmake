# GoogleTest for the target, from the sources that Debian's package googletest installs. Optimised: it prepares each
# test, in a process of its own, under an emulator.
set(INSTALL_GTEST OFF)
add_subdirectory(/usr/src/googletest ${CMAKE_BINARY_DIR}/googletest EXCLUDE_FROM_ALL SYSTEM)
foreach(library gtest gmock)
    target_compile_options(${library} PRIVATE -O2)
endforeach()
