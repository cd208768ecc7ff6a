# What find_package(sorrel) gives: the target sorrel::sorrel and the function sorrel_add_target.
include(CMakeFindDependencyMacro)
find_dependency(Threads)
include(${CMAKE_CURRENT_LIST_DIR}/sorrelTargets.cmake)
include(${CMAKE_CURRENT_LIST_DIR}/SorrelAddTarget.cmake)
