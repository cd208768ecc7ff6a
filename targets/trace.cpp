// Log target that writes a trace for Perfetto, chrome://tracing and speedscope: `target=sorrel-trace.so,
// file=/tmp/trace-%p.json`. Functions that are entered and left become slices, all other messages marks, on a track for
// each thread.
#include "text.hpp"
#include "thread_id.hpp"
#include "trace_file.hpp"

#include <sorrel/target_library.hpp>

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <string>
#include <string_view>
#include <unistd.h>
#include <vector>

namespace {

// Two processes never write one file: where the pattern has no %p, the process id is appended.
std::string pathFor(int processId, const std::string& pattern) {
    const std::string number = std::to_string(processId);
    std::string path = pattern.find("%p") == std::string::npos ? pattern + ".%p" : pattern;
    for (std::size_t i = path.find("%p"); i != std::string::npos; i = path.find("%p", i)) {
        path.replace(i, 2, number);
    }
    return path;
}

bool isRecord(const sorrel::Message& message, std::string_view text) {
    constexpr int kEnterLeave = 8;
    return message.level.numeric == kEnterLeave && message.text == text;
}

struct Function {
    int depth;
    std::string name;
};

// What the file holds of a thread.
struct Track {
    unsigned int file = 0; // the number of the one that knows it
    std::string name;
    long long lastTime = 0;
    std::vector<Function> functions;
    std::size_t open = 0; // so many of them are not left yet; the others keep their memory
};

class TraceTarget final : public sorrel::MessageTarget {
public:
    explicit TraceTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters), m_pattern(parameters.path("file")),
          m_maxSize(parameters.bytes("max_size", 64 << 20U, 64 << 10U)), m_processName(parameters.applicationName()) {
        parameters.refuseUnknown(); // before there is a file
        const int error = begin(getpid());
        if (error != 0) {
            sorrel::TargetParameters::refuse("file", m_pattern, std::string("cannot be made: ") + std::strerror(error));
        }
    }

    void setAppname(const std::string& name) override {
        m_processName = name;
        m_isProcessNamed = false;
    }

private:
    int deliver(const sorrel::Message& message) override {
        int error = m_file.isOpen() && message.processId == m_processId ? 0 : begin(message.processId);
        if (error != 0) {
            return error;
        }
        Track& track = trackOf(threadIdIn(m_processId));
        std::size_t open = compose(message, track);
        if (!m_file.hasRoom(m_events, m_maxSize)) {
            error = begin(m_processId);
            open = compose(message, track);
        }
        error = error == 0 ? m_file.append(m_events) : error;
        if (error == 0) { // only now: a track is what the file holds
            track.file = m_fileNumber;
            track.name = nameOf(track, message);
            track.lastTime = m_time;
            track.open = open;
            if (isRecord(message, "entering")) {
                keepFunction(message, track);
            }
            m_isProcessNamed = true;
        }
        return error;
    }

    // A new file, which holds the name of the process.
    int begin(int processId) {
        m_processId = processId;
        m_threadId = threadIdIn(processId);
        ++m_fileNumber;
        m_events.clear();
        appendName("process_name", processName());
        const int error = m_file.open(pathFor(processId, m_pattern), m_events);
        m_isProcessNamed = error == 0;
        return error;
    }

    Track& trackOf(int threadId) {
        constexpr std::size_t kManyTracks = 1024;
        m_threadId = threadId;
        if (m_tracks.size() >= kManyTracks && m_tracks.count(threadId) == 0) { // most of these threads are gone
            for (auto track = m_tracks.begin(); track != m_tracks.end();) {
                track = track->second.open == 0 ? m_tracks.erase(track) : std::next(track);
            }
        }
        return m_tracks[threadId];
    }

    // Makes the events for a message. Returns how many functions are open behind them.
    //
    // The depth says which functions have been left: records of them may be missing, when a mask was changed meanwhile.
    std::size_t compose(const sorrel::Message& message, const Track& track) {
        m_events.clear();
        m_time = timeOf(message, track);
        if (!m_isProcessNamed) {
            appendName("process_name", processName());
        }
        appendTrack(message, track);
        std::size_t open = track.open;
        bool isLeft = false;
        for (; open > 0 && track.functions[open - 1].depth >= message.depth; --open) {
            const Function& function = track.functions[open - 1];
            appendTimed('E', function.name);
            m_events += '}';
            isLeft = function.depth == message.depth && function.name == message.functionName;
        }
        if (isRecord(message, "entering")) {
            appendBegin(message);
            ++open;
        } else if (!isLeft || !isRecord(message, "leaving")) {
            appendMark(message);
        }
        return open;
    }

    // Names the track, and enters its open functions, where the file does not know them yet.
    void appendTrack(const sorrel::Message& message, const Track& track) {
        const bool isNew = track.file != m_fileNumber;
        const std::string& name = nameOf(track, message);
        if (isNew || name != track.name) {
            appendName("thread_name", name);
        }
        for (std::size_t i = 0; isNew && i < track.open; ++i) {
            appendTimed('B', track.functions[i].name);
            m_events += '}';
        }
    }

    // The last of those that are open.
    static void keepFunction(const sorrel::Message& message, Track& track) {
        if (track.functions.size() < track.open) {
            track.functions.emplace_back();
        }
        track.functions[track.open - 1].depth = message.depth;
        track.functions[track.open - 1].name = message.functionName;
    }

    void appendBegin(const sorrel::Message& message) {
        appendTimed('B', message.functionName);
        appendText(",\"cat\":", message.componentName);
        m_events += '}';
    }

    void appendMark(const sorrel::Message& message) {
        appendTimed('i', message.text);
        m_events += ",\"s\":\"t\"";
        appendText(",\"cat\":", message.componentName);
        const char* const level = sorrel::levelName(message.level.numeric);
        m_events += ",\"args\":{\"level\":";
        if (level != nullptr) {
            text::appendJson(m_events, level);
        } else {
            appendNumber("", message.level.numeric);
        }
        appendText(",\"component\":", message.componentName);
        appendText(",\"function\":", message.functionName);
        appendNumber(",\"depth\":", message.depth);
        m_events += "}}";
    }

    void appendName(const char* kind, const std::string& name) {
        appendStart('M', kind);
        appendText(",\"args\":{\"name\":", name);
        m_events += "}}";
    }

    void appendTimed(char phase, const std::string& name) {
        appendStart(phase, name);
        appendNumber(",\"ts\":", m_time);
    }

    void appendStart(char phase, std::string_view name) {
        m_events += ",\n{\"ph\":\"";
        m_events += phase;
        m_events += '"';
        appendNumber(",\"pid\":", m_processId);
        appendNumber(",\"tid\":", m_threadId);
        appendText(",\"name\":", name);
    }

    void appendText(const char* key, std::string_view value) {
        m_events += key;
        text::appendJson(m_events, value);
    }

    void appendNumber(const char* key, long long value) {
        m_events += key;
        text::appendNumber(m_events, value);
    }

    // In microseconds since 1970. When the clock is set back, the trace goes on as if it had not been.
    long long timeOf(const sorrel::Message& message, const Track& track) {
        constexpr long long kMicroseconds = 1000000;
        const long long time = message.seconds * kMicroseconds + message.microseconds;
        if (time + m_shift < track.lastTime) {
            m_shift = track.lastTime - time;
        }
        return time + m_shift;
    }

    // A thread that is done keeps its name for those who look at its track.
    static const std::string& nameOf(const Track& track, const sorrel::Message& message) {
        return message.threadName == "<thrd done>" && !track.name.empty() ? track.name : message.threadName;
    }

    std::string processName() const { return m_processName.empty() ? program_invocation_short_name : m_processName; }

    const std::string m_pattern;
    const std::int64_t m_maxSize; // bytes
    std::string m_processName;
    bool m_isProcessNamed = false; // in the file
    TraceFile m_file;
    unsigned int m_fileNumber = 0;
    int m_processId = 0; // of the file
    std::map<int, Track> m_tracks;

    // Of the message at hand.
    int m_threadId = 0;
    long long m_time = 0;
    std::string m_events;
    long long m_shift = 0; // by which the clock was set back
};

} // namespace

SORREL_TARGET_LIBRARY(TraceTarget, "trace")
