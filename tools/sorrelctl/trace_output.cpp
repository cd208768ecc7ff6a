// Messages as a trace that chrome://tracing, Perfetto and speedscope open: a track for each thread id.
#include "record_filter.hpp"
#include "record_output.hpp"

#include "log_line.hpp"
#include "open_functions.hpp"
#include "trace_events.hpp"

#include <cstddef>
#include <cstdint>
#include <map>
#include <utility>

namespace sorrelctl {

namespace {

class TraceOutput final : public RecordOutput {
public:
    void write(std::string& out, const Ring& ring, const Records& records) override {
        const std::string::size_type begin = out.size();
        if (!ring.applicationName.empty()) {
            trace_events::appendName(out, {ring.processId, 0, 0}, "process_name", ring.applicationName);
        }
        for (const Record& record : records) {
            write(out, record);
            putHead(out, begin);
            passOn(out);
        }
        closeFunctions(out);
        putHead(out, begin);
    }

    void finish(std::string& out) override {
        out += m_isFirst ? kHead : "\n";
        out += "]}\n";
    }

private:
    static constexpr const char* kHead = "{\"traceEvents\":[";

    // In place of the comma in front of the first event.
    void putHead(std::string& out, std::string::size_type begin) {
        if (m_isFirst && out.size() > begin) {
            out.replace(begin, 1, kHead);
            m_isFirst = false;
        }
    }

    struct Track {
        std::string name;
        OpenFunctions functions;
        std::int64_t last = 0;
    };

    void write(std::string& out, const Record& record) {
        Track& track = m_tracks[{record.processId, record.threadId}];
        track.last = momentOf(record);
        const trace_events::Place place = {record.processId, record.threadId, track.last};
        if (track.name != record.thread) {
            track.name = record.thread;
            trace_events::appendName(out, place, "thread_name", track.name);
        }
        const log_line::Line message = lineOf(record);
        const OpenFunctions::Step step = track.functions.stepOf(message);
        trace_events::appendMessage(out, place, message, track.functions, step);
        track.functions.take(step, message);
    }

    // Functions that are still open at the end of a file are closed with the last message of their thread. The next
    // file may be of another process with the same number.
    void closeFunctions(std::string& out) {
        for (const auto& [id, track] : m_tracks) {
            for (std::size_t i = track.functions.size(); i > 0; --i) {
                trace_events::appendFunction(out, {id.first, id.second, track.last}, 'E', track.functions.name(i - 1));
            }
        }
        m_tracks.clear();
    }

    std::map<std::pair<std::int32_t, std::uint32_t>, Track> m_tracks; // of one file
    bool m_isFirst = true;
};

} // namespace

std::unique_ptr<RecordOutput> makeTraceOutput() {
    return std::make_unique<TraceOutput>();
}

} // namespace sorrelctl
