// sorrelctl: looks at what libsorrel and its targets leave behind.
#include "record_command.hpp"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <cstdio>
#include <exception>

int main(int argc, char** argv) {
    try {
        CLI::App program("Looks at what libsorrel and its log targets leave behind.", "sorrelctl");
        program.require_subcommand(1);
        program.footer("Ends with\n"
                       "  0 when all went well,\n"
                       "  1 when a file cannot be read or is none of ours,\n"
                       "  2 when the command line is wrong,\n"
                       "  3 when a file is damaged; what is whole in it is shown.");
        program.set_version_flag("--version", "sorrelctl " SORREL_VERSION, "Show the version and end");
        program.set_help_all_flag("--help-all", "Help for all commands");
        const sorrelctl::RecordCommand record(program);
        try {
            program.parse(argc, argv);
        } catch (const CLI::ParseError& error) {
            return program.exit(error) == 0 ? 0 : sorrelctl::kWrongUsage;
        }
        return record.status();
    } catch (const std::exception& error) {
        std::fprintf(stderr, "sorrelctl: %s\n", error.what());
        return sorrelctl::kUnreadable;
    }
}
