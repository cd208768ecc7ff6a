# Tests that are commands: on the shared object, the headers and the sources.
function(sorrel_script_test label name)
    add_test(NAME ${label}.${name} COMMAND ${ARGN})
    set_tests_properties(${label}.${name} PROPERTIES LABELS ${label} TIMEOUT 300 SKIP_RETURN_CODE 77)
endfunction()

# The same, of tests that look at the source tree and not at this build: they need to run in one build only.
function(sorrel_tree_test label name)
    sorrel_script_test(${label} ${name} ${ARGN})
    set_property(TEST ${label}.${name} APPEND PROPERTY LABELS tree)
endfunction()

set(exportedNames ${CMAKE_CURRENT_SOURCE_DIR}/exported_names.txt)
foreach(property soname needed relocations calls versions boost names)
    sorrel_script_test(abi SharedObject.${property}
        ${CMAKE_CURRENT_SOURCE_DIR}/check_shared_object ${property} $<TARGET_FILE:sorrel> ${exportedNames})
endforeach()

foreach(compiler g++ clang++-14)
    foreach(standard c99 c11 c++11 c++17)
        sorrel_tree_test(abi Headers.${compiler}-${standard}
            ${CMAKE_CURRENT_SOURCE_DIR}/check_headers ${compiler} ${standard} ${PROJECT_SOURCE_DIR}/include/sorrel)
    endforeach()
endforeach()

# The names do not depend on the compiler, nor on the optimisation. Builds without it are those of dev and clang, whose
# names are compared above.
if(NOT CMAKE_CROSSCOMPILING)
    foreach(compiler g++ clang++-14)
        sorrel_tree_test(abi ExportedNames.${compiler}-O2
            ${CMAKE_CURRENT_SOURCE_DIR}/check_names_of_build ${compiler} O2 ${exportedNames}
            ${CMAKE_CURRENT_BINARY_DIR}/build-${compiler}-O2)
        set_tests_properties(abi.ExportedNames.${compiler}-O2 PROPERTIES PROCESSORS 2)
    endforeach()
endif()

# What is installed serves projects outside this tree.
if(NOT CMAKE_CROSSCOMPILING)
    sorrel_script_test(abi Package ${CMAKE_CURRENT_SOURCE_DIR}/check_package ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR})
endif()

# Who includes whom, and which of the two the test programs were linked from.
sorrel_script_test(walls Tree ${PROJECT_SOURCE_DIR}/scripts/check-walls ${CMAKE_BINARY_DIR})
sorrel_tree_test(walls TheCheckerFindsPlantedViolations
    ${CMAKE_CURRENT_SOURCE_DIR}/check_walls_test $<TARGET_FILE:unit_emission_test> $<TARGET_FILE:abi_mutex_count_test>)

# That it still runs, not how fast.
if(TARGET sorrel_message_path_bench)
    sorrel_script_test(bench MessagePath sorrel_message_path_bench --benchmark_min_time=0.001)
endif()
