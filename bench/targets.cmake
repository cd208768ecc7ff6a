# The log targets beside what they replace.
find_library(SORREL_SYSTEMD systemd)
find_path(SORREL_SYSTEMD_INCLUDE systemd/sd-journal.h)

function(sorrel_bench_target_program name)
    add_executable(sorrel_bench_${name} EXCLUDE_FROM_ALL targets/${name}.cpp ${ARGN})
    target_link_libraries(sorrel_bench_${name} PRIVATE Threads::Threads sorrel_build_flags)
    add_dependencies(sorrel_bench sorrel_bench_${name})
endfunction()

if(TARGET sorrel-journal AND SORREL_SYSTEMD AND SORREL_SYSTEMD_INCLUDE)
    set(support ${PROJECT_SOURCE_DIR}/tests/support)
    set(loop targets/journal_main.cpp ${support}/private_system.cpp ${support}/real_service.cpp)
    sorrel_bench_target_program(journal_sorrel ${loop})
    target_link_libraries(sorrel_bench_journal_sorrel PRIVATE sorrel::sorrel)
    target_compile_definitions(sorrel_bench_journal_sorrel PRIVATE
        SORREL_BENCH_JOURNAL_TARGET="$<TARGET_FILE:sorrel-journal>")
    add_dependencies(sorrel_bench_journal_sorrel sorrel-journal)
    sorrel_bench_target_program(journal_sendv ${loop})
    target_link_libraries(sorrel_bench_journal_sendv PRIVATE ${SORREL_SYSTEMD})
endif()
