# The comparison: programs for each library that is found here.
find_package(spdlog QUIET)
find_package(glog QUIET)
find_package(Boost 1.74 QUIET COMPONENTS log)
find_library(SORREL_LOG4CPLUS log4cplus)

# One file of peers and the loop that measures it: LOOP FILE LIBRARY... The tally is exported for plug-ins.
function(sorrel_bench_peer loop name)
    sorrel_bench_program(sorrel_bench_${loop}_${name} ${loop} ${name} ${ARGN})
endfunction()
function(sorrel_bench_program program loop name)
    add_executable(${program} EXCLUDE_FROM_ALL ${loop}_main.cpp peers/${name}.cpp)
    set_target_properties(${program} PROPERTIES ENABLE_EXPORTS ON)
    target_include_directories(${program} PRIVATE ${CMAKE_CURRENT_SOURCE_DIR})
    target_link_libraries(${program} PRIVATE ${ARGN} Threads::Threads sorrel_build_flags)
    add_dependencies(sorrel_bench ${program})
endfunction()

sorrel_bench_peer(message floor sorrel::sorrel)
target_sources(sorrel_bench_message_floor PRIVATE message_floor.cpp)

sorrel_bench_peer(message syslog)
target_sources(sorrel_bench_message_syslog PRIVATE ${PROJECT_SOURCE_DIR}/tests/support/private_system.cpp)

foreach(loop message dump launch memory)
    sorrel_bench_peer(${loop} sorrel sorrel::sorrel)
    target_compile_definitions(sorrel_bench_${loop}_sorrel PRIVATE
        SORREL_BENCH_TALLY_TARGET="$<TARGET_FILE:sorrel_bench_tally_target>")
    add_dependencies(sorrel_bench_${loop}_sorrel sorrel_bench_tally_target)
endforeach()
foreach(loop launch memory)
    sorrel_bench_peer(${loop} none)
endforeach()

if(spdlog_FOUND)
    sorrel_bench_peer(message spdlog spdlog::spdlog)
    sorrel_bench_peer(dump spdlog spdlog::spdlog)
    sorrel_bench_program(sorrel_bench_message_spdlog_header_only message spdlog spdlog::spdlog_header_only)
endif()
if(SORREL_LOG4CPLUS)
    sorrel_bench_peer(message log4cplus ${SORREL_LOG4CPLUS})
endif()
if(glog_FOUND)
    sorrel_bench_peer(message glog glog::glog)
endif()
if(TARGET Boost::log)
    sorrel_bench_peer(message boost_log Boost::log)
endif()

# Lines in a file: our targets beside their peers.
function(sorrel_bench_lines name)
    set(program sorrel_bench_lines_${name})
    add_executable(${program} EXCLUDE_FROM_ALL lines/lines_main.cpp lines/${name}.cpp)
    target_link_libraries(${program} PRIVATE ${ARGN} Threads::Threads sorrel_build_flags)
    add_dependencies(sorrel_bench ${program})
endfunction()

if(TARGET sorrel_targets)
    sorrel_bench_lines(sorrel sorrel::sorrel)
    target_compile_definitions(sorrel_bench_lines_sorrel PRIVATE
        SORREL_BENCH_CONSOLE_TARGET="$<TARGET_FILE:sorrel-console>"
        SORREL_BENCH_FILE_TARGET="$<TARGET_FILE:sorrel-file>")
    add_dependencies(sorrel_bench_lines_sorrel sorrel_targets)
endif()
if(spdlog_FOUND)
    sorrel_bench_lines(spdlog spdlog::spdlog)
endif()
