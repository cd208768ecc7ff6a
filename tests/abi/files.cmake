# Tests that are commands: on the shared object, the headers and the sources.
function(sorrel_script_test label name)
    add_test(NAME ${label}.${name} COMMAND ${ARGN})
    set_tests_properties(${label}.${name} PROPERTIES LABELS ${label} TIMEOUT 300 SKIP_RETURN_CODE 77)
endfunction()

set(exportedNames ${CMAKE_CURRENT_SOURCE_DIR}/exported_names.txt)
foreach(property soname needed relocations calls versions boost names)
    sorrel_script_test(abi SharedObject.${property}
        ${CMAKE_CURRENT_SOURCE_DIR}/check_shared_object ${property} $<TARGET_FILE:sorrel> ${exportedNames})
endforeach()

foreach(compiler g++ clang++-14)
    foreach(standard c99 c11 c++11 c++17)
        sorrel_script_test(abi Headers.${compiler}-${standard}
            ${CMAKE_CURRENT_SOURCE_DIR}/check_headers ${compiler} ${standard} ${PROJECT_SOURCE_DIR}/include/sorrel)
    endforeach()
endforeach()

# The names do not depend on the compiler, nor on the optimisation.
if(NOT CMAKE_CROSSCOMPILING)
    foreach(compiler g++ clang++-14)
        foreach(optimisation O0 O2)
            sorrel_script_test(abi ExportedNames.${compiler}-${optimisation}
                ${CMAKE_CURRENT_SOURCE_DIR}/check_names_of_build ${compiler} ${optimisation} ${exportedNames}
                ${CMAKE_CURRENT_BINARY_DIR}/build-${compiler}-${optimisation})
            set_tests_properties(abi.ExportedNames.${compiler}-${optimisation} PROPERTIES PROCESSORS 2)
        endforeach()
    endforeach()
endif()

# What is installed serves projects outside this tree.
if(NOT CMAKE_CROSSCOMPILING)
    sorrel_script_test(abi Package ${CMAKE_CURRENT_SOURCE_DIR}/check_package ${CMAKE_BINARY_DIR} ${PROJECT_SOURCE_DIR})
endif()

# Who includes whom, and which of the two the test programs were linked from.
sorrel_script_test(walls Tree ${PROJECT_SOURCE_DIR}/scripts/check-walls ${CMAKE_BINARY_DIR})
sorrel_script_test(walls TheCheckerFindsPlantedViolations
    ${CMAKE_CURRENT_SOURCE_DIR}/check_walls_test $<TARGET_FILE:unit_level_test> $<TARGET_FILE:abi_raw_target_test>)

# That it still runs, not how fast.
if(TARGET sorrel_message_path_bench)
    sorrel_script_test(bench MessagePath sorrel_message_path_bench --benchmark_min_time=0.001)
endif()
