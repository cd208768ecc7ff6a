# sorrel_add_target(NAME SOURCES...): a log target, as the plug-in NAME.so. Links libsorrel and exports nothing but the
# contract; docs/WRITING_A_TARGET.md says why each flag is needed. For more, use the CMake target NAME.
function(sorrel_add_target name)
    set(map ${CMAKE_CURRENT_FUNCTION_LIST_DIR}/sorrel_target.map)
    add_library(${name} MODULE ${ARGN})
    set_target_properties(${name} PROPERTIES
        PREFIX ""
        CXX_VISIBILITY_PRESET hidden
        VISIBILITY_INLINES_HIDDEN ON
        LINK_DEPENDS ${map})
    target_compile_features(${name} PRIVATE cxx_std_17)
    target_compile_options(${name} PRIVATE $<$<CXX_COMPILER_ID:GNU>:-fno-gnu-unique>)
    target_link_libraries(${name} PRIVATE sorrel::sorrel)
    target_link_options(${name} PRIVATE -Wl,-z,now -Wl,--version-script=${map})
    if(NOT SORREL_SANITIZE) # sanitizers leave symbols open in a shared library
        target_link_options(${name} PRIVATE -Wl,-z,defs)
    endif()
endfunction()
