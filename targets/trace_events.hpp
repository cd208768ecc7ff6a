// The events of a trace, in Chrome's format. All functions append, each event behind ",\n".
#ifndef SORREL_TARGETS_TRACE_EVENTS_HPP
#define SORREL_TARGETS_TRACE_EVENTS_HPP

#include "log_line.hpp"
#include "open_functions.hpp"
#include "text.hpp"

#include <cstddef>
#include <string>
#include <string_view>

namespace trace_events {
namespace {

// A track, and a time on it.
struct Place {
    int processId;
    long long threadId;
    long long time; // in microseconds since 1970
};

inline void appendNumber(std::string& out, const char* key, long long value) {
    out += key;
    text::appendNumber(out, value);
}

inline void appendText(std::string& out, const char* key, std::string_view value) {
    out += key;
    text::appendJson(out, value);
}

inline void appendStart(std::string& out, const Place& place, char phase, std::string_view name) {
    out += ",\n{\"ph\":\"";
    out += phase;
    out += '"';
    appendNumber(out, ",\"pid\":", place.processId);
    appendNumber(out, ",\"tid\":", place.threadId);
    appendText(out, ",\"name\":", name);
}

inline void appendTimed(std::string& out, const Place& place, char phase, std::string_view name) {
    appendStart(out, place, phase, name);
    appendNumber(out, ",\"ts\":", place.time);
}

// Of the process or of the thread: "process_name", "thread_name".
inline void appendName(std::string& out, const Place& place, const char* kind, std::string_view name) {
    appendStart(out, place, 'M', kind);
    appendText(out, ",\"args\":{\"name\":", name);
    out += "}}";
}

// A function begins ('B') or ends ('E').
inline void appendFunction(std::string& out, const Place& place, char phase, std::string_view name) {
    appendTimed(out, place, phase, name);
    out += '}';
}

inline void appendMark(std::string& out, const Place& place, const log_line::Line& message) {
    appendTimed(out, place, 'i', message.text);
    appendText(out, ",\"s\":\"t\",\"cat\":", message.component);
    const char* const level = sorrel::levelName(message.level);
    if (level != nullptr) {
        appendText(out, ",\"args\":{\"level\":", level);
    } else {
        appendNumber(out, ",\"args\":{\"level\":", message.level);
    }
    appendText(out, ",\"component\":", message.component);
    appendText(out, ",\"function\":", message.function);
    appendNumber(out, ",\"depth\":", message.depth);
    out += "}}";
}

// The functions that end with a message, and the message itself: a function that begins, or a mark. What leaves a
// function that was not open is a mark too.
inline void appendMessage(std::string& out, const Place& place, const log_line::Line& message,
                          const OpenFunctions& functions, const OpenFunctions::Step& step) {
    for (std::size_t i = step.open; i > step.stay; --i) {
        appendFunction(out, place, 'E', functions.name(i - 1));
    }
    if (step.enters) {
        appendTimed(out, place, 'B', message.function);
        appendText(out, ",\"cat\":", message.component);
        out += '}';
    } else if (!step.leaves) {
        appendMark(out, place, message);
    }
}

} // namespace
} // namespace trace_events

#endif // SORREL_TARGETS_TRACE_EVENTS_HPP
