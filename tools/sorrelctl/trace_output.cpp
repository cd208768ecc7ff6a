// Messages as a trace that chrome://tracing, Perfetto and speedscope open: a track for each thread id.
#include "record_filter.hpp"
#include "record_output.hpp"

#include "log_line.hpp"
#include "text.hpp"

#include <cstdint>
#include <fmt/format.h>
#include <iterator>
#include <map>
#include <string_view>
#include <utility>

namespace sorrelctl {

namespace {

constexpr std::int32_t kEnterLeave = 8; // the level of traced functions

class TraceOutput final : public RecordOutput {
public:
    void write(std::string& out, const Ring& ring, const Records& records) override {
        if (!ring.applicationName.empty()) {
            metadata(out, "process_name", ring.processId, 0, ring.applicationName);
        }
        for (const Record& record : records) {
            Track& track = m_tracks[{record.processId, record.threadId}];
            if (track.name != record.thread) {
                track.name = record.thread;
                metadata(out, "thread_name", record.processId, record.threadId, record.thread);
            }
            track.last = momentOf(record);
            write(out, record, track);
            passOn(out);
        }
        closeFunctions(out);
    }

    void finish(std::string& out) override { out += m_isFirst ? "{\"traceEvents\":[]}\n" : "\n]}\n"; }

private:
    struct Track {
        std::string name;
        std::size_t open = 0; // functions
        std::int64_t last = 0;
    };

    // A ring begins anywhere: what leaves a function that was entered before it is shown as a message.
    void write(std::string& out, const Record& record, Track& track) {
        const bool isTraced = record.level == kEnterLeave && !record.function.empty();
        const bool enters = isTraced && record.text == "entering";
        const bool leaves = isTraced && record.text == "leaving" && track.open != 0;
        begin(out, enters ? 'B' : leaves ? 'E' : 'i', record.processId, record.threadId, track.last);
        track.open += enters ? 1U : 0U;
        track.open -= leaves ? 1U : 0U;
        out += ",\"name\":";
        text::appendJson(out, enters || leaves ? record.function : record.text);
        out += ",\"cat\":";
        text::appendJson(out, record.component);
        if (!enters && !leaves) {
            out += ",\"s\":\"t\",\"args\":{\"level\":\"";
            log_line::appendLevel(out, record.level);
            out += "\",\"function\":";
            text::appendJson(out, record.function);
            out += '}';
        }
        out += '}';
    }

    // Functions that are still open at the end of a file are closed with the last message of their thread. The next
    // file may be of another process with the same number.
    void closeFunctions(std::string& out) {
        for (const auto& [id, track] : m_tracks) {
            for (std::size_t i = 0; i < track.open; ++i) {
                begin(out, 'E', id.first, id.second, track.last);
                out += '}';
            }
        }
        m_tracks.clear();
    }

    void begin(std::string& out, char phase, std::int32_t processId, std::uint32_t threadId, std::int64_t moment) {
        next(out);
        fmt::format_to(std::back_inserter(out), "{{\"ph\":\"{}\",\"pid\":{},\"tid\":{},\"ts\":{}", phase, processId,
                       threadId, moment);
    }

    void metadata(std::string& out, const char* what, std::int32_t processId, std::uint32_t threadId,
                  std::string_view name) {
        next(out);
        fmt::format_to(std::back_inserter(out), R"({{"ph":"M","pid":{},"tid":{},"name":"{}","args":{{"name":)",
                       processId, threadId, what);
        text::appendJson(out, name);
        out += "}}";
    }

    void next(std::string& out) {
        out += m_isFirst ? "{\"traceEvents\":[\n" : ",\n";
        m_isFirst = false;
    }

    std::map<std::pair<std::int32_t, std::uint32_t>, Track> m_tracks; // of one file
    bool m_isFirst = true;
};

} // namespace

std::unique_ptr<RecordOutput> makeTraceOutput() {
    return std::make_unique<TraceOutput>();
}

} // namespace sorrelctl
