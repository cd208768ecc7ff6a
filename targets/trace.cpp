// Log target that writes a trace for Perfetto, chrome://tracing and speedscope: `target=sorrel-trace.so,
// file=/tmp/trace-%p.json`. Functions that are entered and left become slices, all other messages marks, on a track for
// each thread.
#include "file_pattern.hpp"
#include "log_line.hpp"
#include "open_functions.hpp"
#include "thread_id.hpp"
#include "trace_events.hpp"
#include "trace_file.hpp"

#include <sorrel/target_library.hpp>

#include <algorithm>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <iterator>
#include <map>
#include <stdexcept>
#include <string>
#include <unistd.h>
#include <vector>

namespace {

// What the file holds of a thread.
struct Track {
    unsigned int file = 0; // the number of the one that knows it
    std::string name;
    long long lastTime = 0;
    OpenFunctions functions;
};

class TraceTarget final : public sorrel::MessageTarget {
public:
    explicit TraceTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters), m_pattern(parameters.pathPattern("file")),
          m_path(pathOf(m_pattern, parameters.applicationName())),
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
    // Two processes never write one file: where the pattern has no %p, the process id is appended.
    static FilePattern pathOf(const std::string& pattern, const std::string& applicationName) {
        try {
            FilePattern path(pattern, applicationName);
            return path.hasProcessId() ? path : FilePattern(pattern + ".%p", applicationName);
        } catch (const std::invalid_argument& error) {
            sorrel::TargetParameters::refuse("file", pattern, error.what());
        }
    }

    int deliver(const sorrel::Message& message) override {
        int error = m_file.isOpen() && message.processId == m_processId ? 0 : begin(message.processId);
        if (error != 0) {
            return error;
        }
        Track& track = trackOf(threadIdIn(m_processId));
        OpenFunctions::Step step = compose(message, track);
        if (!m_file.hasRoom(m_events, m_maxSize)) {
            error = begin(m_processId);
            step = compose(message, track);
            error = error == 0 && !m_file.hasRoom(m_events, m_maxSize) ? EMSGSIZE : error;
        }
        error = error == 0 ? m_file.append(m_events) : error;
        if (error == 0) { // only now: a track is what the file holds
            track.file = m_fileNumber;
            track.name = nameOf(track, message);
            track.lastTime = m_place.time;
            track.functions.take(step, log_line::lineOf(message));
            m_repeated += m_repeatedNow;
            m_isProcessNamed = true;
        }
        return error;
    }

    // A new file, which holds the name of the process.
    int begin(int processId) {
        m_processId = processId;
        m_place = {processId, threadIdIn(processId), 0};
        ++m_fileNumber;
        m_repeated = 0;
        m_events.clear();
        trace_events::appendName(m_events, m_place, "process_name", processName());
        const int error = m_file.open(m_path.pathFor(processId), m_events);
        m_isProcessNamed = error == 0;
        return error;
    }

    Track& trackOf(int threadId) {
        m_place.threadId = threadId;
        if (m_tracks.size() >= kManyTracks && m_tracks.count(threadId) == 0) {
            giveUpTracks();
        }
        return m_tracks[threadId];
    }

    // Most of so many threads are gone: those that are in no function, and if these are too few, the ones that have
    // been silent for the longest time.
    void giveUpTracks() {
        giveUp([](const Track& track) { return track.functions.size() == 0; });
        if (m_tracks.size() > kManyTracks / 2) {
            std::vector<long long> times;
            for (const auto& track : m_tracks) {
                times.push_back(track.second.lastTime);
            }
            const auto middle = times.begin() + static_cast<std::ptrdiff_t>(times.size() / 2);
            std::nth_element(times.begin(), middle, times.end());
            giveUp([time = *middle](const Track& track) { return track.lastTime <= time; });
        }
    }

    template <typename Condition>
    void giveUp(const Condition& isGone) {
        for (auto track = m_tracks.begin(); track != m_tracks.end();) {
            track = isGone(track->second) ? m_tracks.erase(track) : std::next(track);
        }
    }

    // Makes the events for a message, and those that the file needs before them.
    OpenFunctions::Step compose(const sorrel::Message& message, const Track& track) {
        const log_line::Line line = log_line::lineOf(message);
        m_events.clear();
        m_repeatedNow = 0;
        m_place.time = timeOf(message, track);
        if (!m_isProcessNamed) {
            trace_events::appendName(m_events, m_place, "process_name", processName());
        }
        const bool isNew = track.file != m_fileNumber;
        const std::string& name = nameOf(track, message);
        if (isNew || name != track.name) {
            trace_events::appendName(m_events, m_place, "thread_name", name);
        }
        const std::size_t stay = track.functions.stepOf(line).stay;
        const std::size_t open = isNew ? repeatFunctions(track, stay) : track.functions.size();
        const OpenFunctions::Step step = track.functions.stepOf(line, open);
        trace_events::appendMessage(m_events, m_place, line, track.functions, step);
        return step;
    }

    // Enters functions that the file does not know yet, as many of the outermost ones as fit into the half of it that
    // the threads have for this: messages need the rest. Returns how many.
    std::size_t repeatFunctions(const Track& track, std::size_t count) {
        const std::size_t start = m_events.size();
        for (std::size_t i = 0; i < count; ++i) {
            const std::size_t end = m_events.size();
            trace_events::appendFunction(m_events, m_place, 'B', track.functions.name(i));
            const auto repeated = static_cast<std::int64_t>(m_events.size() - start);
            if (m_repeated + repeated > m_maxSize / 2) {
                m_events.resize(end);
                return i;
            }
            m_repeatedNow = repeated;
        }
        return count;
    }

    // In microseconds since 1970. When the clock is set back, the trace goes on as if it had not been.
    long long timeOf(const sorrel::Message& message, const Track& track) {
        const long long time = message.microsecondsSinceEpoch();
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

    static constexpr std::size_t kManyTracks = 1024;

    const std::string m_pattern;
    const FilePattern m_path;
    const std::int64_t m_maxSize; // bytes
    std::string m_processName;
    bool m_isProcessNamed = false; // in the file
    TraceFile m_file;
    unsigned int m_fileNumber = 0;
    int m_processId = 0;         // of the file
    std::int64_t m_repeated = 0; // bytes of functions that were entered before the file was made
    std::map<int, Track> m_tracks;

    // Of the message at hand.
    trace_events::Place m_place{};
    std::string m_events;
    std::int64_t m_repeatedNow = 0;
    long long m_shift = 0; // by which the clock was set back
};

} // namespace

SORREL_TARGET_LIBRARY(TraceTarget, "trace")
