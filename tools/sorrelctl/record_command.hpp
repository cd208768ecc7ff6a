// sorrelctl record: shows what the recorder's ring files hold.
#ifndef SORREL_TOOLS_RECORD_COMMAND_HPP
#define SORREL_TOOLS_RECORD_COMMAND_HPP

#include "record_filter.hpp"
#include "record_output.hpp"

#include <CLI/App.hpp>

#include <string>
#include <vector>

namespace sorrelctl {

// What sorrelctl ends with.
constexpr int kUnreadable = 1; // a file could not be read, or is no ring
constexpr int kWrongUsage = 2;
constexpr int kDamaged = 3; // a file is damaged; what is whole was shown

class RecordCommand {
public:
    // Adds itself; runs when it is on the command line. Throws CLI's errors for what is wrong there.
    explicit RecordCommand(CLI::App& program);
    RecordCommand(const RecordCommand&) = delete;
    RecordCommand& operator=(const RecordCommand&) = delete;

    int status() const { return m_status; }

private:
    // What the command line asks for.
    struct Request {
        std::vector<std::string> files;
        Format format = Format::Text;
        RecordFilter filter;
        bool hasInfo = false; // above the messages
        bool isInfoOnly = false;
        bool isAll = false;
    };

    CLI::App& add(CLI::App& record, const std::string& name, const std::string& help, Request& request);
    static int run(Request& request);
    static void showRing(const std::string& path, Ring& ring, Request& request, RecordOutput& output);
    static int showFile(const std::string& path, Request& request, RecordOutput& output);

    Request m_show;
    Request m_export;
    int m_status = 0;
};

} // namespace sorrelctl

#endif // SORREL_TOOLS_RECORD_COMMAND_HPP
