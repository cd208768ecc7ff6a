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
#include <memory>
#include <new>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

namespace sorrelctl {

namespace {

[[noreturn]] void failOutput() {
    throw std::system_error(errno, std::generic_category(), "standard output");
}

void put(std::string& text) {
    if (std::fwrite(text.data(), 1, text.size(), stdout) != text.size()) {
        failOutput();
    }
    text.clear();
}

void complain(const std::string& path, const std::string& what) {
    std::string shown;
    text::appendVisible(shown, path);
    std::fprintf(stderr, "sorrelctl: %s: %s\n", shown.c_str(), what.c_str());
}

void complainOfAll(const std::string& path, const std::vector<std::string>& damages) {
    for (const std::string& damage : damages) {
        complain(path, damage);
    }
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
    addOption(command, "--last", filter.last, "The last COUNT of what is chosen otherwise, of each file", "COUNT");
}

} // namespace

// Takes the messages that are not wanted out of the ring.
void RecordCommand::showRing(const std::string& path, Ring& ring, Request& request, RecordOutput& output) {
    std::string out;
    if (request.hasInfo) {
        appendInfo(out, path, ring, request.isInfoOnly);
    } else if (!request.isAll && !ring.lost.empty() && !ring.older.empty()) { // more than rests of earlier laps
        complain(path, std::to_string(ring.older.size()) +
                           " whole messages before a gap are left out (--all shows them too)");
    }
    if (!request.isInfoOnly) {
        if (request.isAll) {
            ring.records.putBefore(ring.older);
        }
        request.filter.choose(ring.records);
        output.write(out, ring, ring.records);
    }
    put(out);
}

// Returns the status for this file.
int RecordCommand::showFile(const std::string& path, Request& request, RecordOutput& output) {
    try {
        Ring ring = readRing(readFile(path));
        const bool isStill = !isAlive(ring);      // otherwise the copy may miss what the file has
        if (isStill && !lossesOf(ring).empty()) { // its process may have ended while it was copied
            ring = {};
            ring = readRing(readFile(path));
        }
        showRing(path, ring, request, output);
        const std::vector<std::string> losses = isStill ? lossesOf(ring) : std::vector<std::string>();
        complainOfAll(path, ring.damages);
        complainOfAll(path, losses);
        return ring.damages.empty() && losses.empty() ? 0 : kDamaged;
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
    output->setWriter(put);
    int worst = 0;
    for (const std::string& path : request.files) {
        worst = worse(worst, showFile(path, request, *output));
    }
    std::string end;
    if (!request.isInfoOnly) {
        output->finish(end);
    }
    put(end);
    if (std::fflush(stdout) != 0) {
        failOutput();
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
