# The programs that programs_test.cpp runs.
function(sorrel_abi_program name source)
    add_executable(${name} ${source})
    target_link_libraries(${name} PRIVATE sorrel_build_flags sorrel ${ARGN})
    add_dependencies(abi_tests ${name})
endfunction()

function(sorrel_at_fixed_address name)
    target_compile_options(${name} PRIVATE -fno-pie)
    target_link_options(${name} PRIVATE -no-pie)
endfunction()

sorrel_abi_program(abi_c_program c_program.c)
sorrel_abi_program(abi_c_program_no_pie c_program.c)
sorrel_at_fixed_address(abi_c_program_no_pie)
sorrel_abi_program(abi_no_pie_program no_pie_program.cpp)
sorrel_at_fixed_address(abi_no_pie_program)

add_library(abi_early_library SHARED early_library.cpp)
target_link_libraries(abi_early_library PRIVATE sorrel_build_flags sorrel)
sorrel_abi_program(abi_early_program early_program.cpp abi_early_library)

target_compile_definitions(abi_tests PRIVATE
    SORREL_TEST_C_PROGRAM="$<TARGET_FILE:abi_c_program>"
    SORREL_TEST_C_PROGRAM_NO_PIE="$<TARGET_FILE:abi_c_program_no_pie>"
    SORREL_TEST_NO_PIE_PROGRAM="$<TARGET_FILE:abi_no_pie_program>"
    SORREL_TEST_EARLY_PROGRAM="$<TARGET_FILE:abi_early_program>")
