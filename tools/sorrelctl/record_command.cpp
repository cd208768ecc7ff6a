// sorrelctl record show and record export: their options, and their files one after the other.
#include "record_command.hpp"

#include "record_filter.hpp"
#include "record_output.hpp"
#include "ring_reader.hpp"
#include "text.hpp"

#include <CLI/Config.hpp>
#include <CLI/Formatter.hpp>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <vector>

namespace sorrelctl {

namespace {

void put(std::string& text) {
    std::fwrite(text.data(), 1, text.size(), stdout);
    text.clear();
}

void complain(const std::string& path, const std::string& what) {
    std::string shown;
    text::appendVisible(shown, path);
    std::fprintf(stderr, "sorrelctl: %s: %s\n", shown.c_str(), what.c_str());
}

// Unreadable files count more than damaged ones.
int worse(int one, int other) {
    return one == kUnreadable || other == kUnreadable ? kUnreadable : std::max(one, other);
}

// Makes an option's value of its words. What that throws is told as any wrong value.
template <typename Value>
void addOption(CLI::App& command, const std::string& name, std::optional<Value>& value, const std::string& help,
               const std::string& type) {
    const CLI::callback_t take = [&value, name](const CLI::results_t& words) {
        try {
            value.emplace(words.back());
        } catch (const std::invalid_argument& error) {
            throw CLI::ValidationError(name, error.what());
        }
        return true;
    };
    command.add_option(name, take, help)->type_name(type);
}

void addFilters(CLI::App& command, RecordFilter& filter) {
    addOption(command, "--level", filter.levels, "Levels: err;warning, upto:info, all;-enterleave, 0x48", "LEVELS");
    addOption(command, "--component", filter.components, "Components: names and patterns, net;ui*", "NAMES");
    addOption(command, "--thread", filter.threads, "Threads, by name as components", "NAMES");
    addOption(command, "--function", filter.functions, "Traced functions, by name as components", "NAMES");
    addOption(command, "--grep", filter.text, "Messages whose text holds this, as grep -E takes it", "REGEX");
    addOption(command, "--since", filter.since,
              "From this time on: 90s, 5m, 2h or 1d before the newest message, \"2024-02-29 13:04:05\" in local time,\n"
              "@SECONDS since 1970",
              "TIME");
    command.add_option("--last", filter.last, "The last COUNT of what is chosen otherwise, of each file")
        ->type_name("COUNT");
}

} // namespace

// Returns the status for this file.
int RecordCommand::showFile(const std::string& path, Request& request, RecordOutput& output) {
    try {
        const Ring ring = readRing(readFile(path));
        std::string out;
        if (request.hasInfo) {
            appendInfo(out, path, ring, request.isInfoOnly);
        }
        if (!request.isInfoOnly) {
            std::vector<Record> records = request.isAll ? ring.older : std::vector<Record>();
            records.insert(records.end(), ring.records.begin(), ring.records.end());
            output.write(out, ring, request.filter.choose(records));
        }
        put(out);
        for (const std::string& damage : ring.damages) {
            complain(path, damage);
        }
        return ring.damages.empty() ? 0 : kDamaged;
    } catch (const RingError& error) {
        complain(path, error.what());
        return kUnreadable;
    } catch (const std::bad_alloc&) {
        complain(path, "takes more memory than there is");
        return kUnreadable;
    }
}

int RecordCommand::run(Request& request) {
    const std::unique_ptr<RecordOutput> output = makeOutput(request.format);
    int worst = 0;
    for (const std::string& path : request.files) {
        worst = worse(worst, showFile(path, request, *output));
    }
    std::string end;
    if (!request.isInfoOnly) {
        output->finish(end);
    }
    put(end);
    if (std::fflush(stdout) != 0 || std::ferror(stdout) != 0) {
        complain("standard output", std::strerror(errno));
        return kUnreadable;
    }
    return worst;
}

CLI::App& RecordCommand::add(CLI::App& record, const std::string& name, const std::string& help, Request& request) {
    CLI::App& command = *record.add_subcommand(name, help);
    command.add_option("FILE", request.files, "Ring files")->required();
    const auto setFormat = [&request](const std::string& word) {
        request.format = word == "text" ? Format::Text : word == "json" ? Format::Json : Format::Trace;
    };
    command
        .add_option_function<std::string>("--format", setFormat, "JSON is a line each, a trace is for trace viewers")
        ->check(CLI::IsMember({"text", "json", "trace"}))
        ->type_name("");
    command.add_flag("--all", request.isAll, "Also whole messages that lie before a gap in the sequence");
    addFilters(command, request.filter);
    command.callback([this, &request] { m_status = run(request); });
    return command;
}

RecordCommand::RecordCommand(CLI::App& program) {
    CLI::App& record = *program.add_subcommand("record", "Read the ring files of the recorder, also of other machines");
    record.require_subcommand(1);
    m_show.hasInfo = true;
    CLI::App& show = add(record, "show", "Show messages, and above them what is known about their process", m_show);
    show.add_flag("--info", m_show.isInfoOnly, "Only what is known: process, counters, components");
    m_export.format = Format::Json;
    add(record, "export", "Write messages and nothing else, as JSON lines when nothing else is said", m_export);
}

} // namespace sorrelctl
