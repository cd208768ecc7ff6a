// Lines of text and of JSON, in the forms that the file target writes; and what is known about a ring.
#include "record_output.hpp"

#include "log_line.hpp"
#include "text.hpp"
#include "timestamp.hpp"

#include <fmt/format.h>
#include <iterator>

namespace sorrelctl {

namespace {

std::string visible(std::string_view text) {
    std::string shown;
    text::appendVisible(shown, text);
    return shown;
}

// Text or JSON.
template <typename Lines>
class LineOutput final : public RecordOutput {
public:
    void write(std::string& out, const Ring& /*ring*/, const Records& records) override {
        for (const Record& record : records) {
            m_lines.append(out, lineOf(record));
            passOn(out);
        }
    }

private:
    Lines m_lines;
};

const char* stateOf(const Ring& ring) {
    return ring.hasEnded ? "ended in order" : isAlive(ring) ? "running" : "gone without an end";
}

void appendMessageCounts(std::string& out, const Ring& ring) {
    if (ring.records.empty()) {
        out += "# messages: none\n";
    } else {
        const std::uint64_t first = ring.records.front().sequence;
        const std::uint64_t last = ring.records.back().sequence;
        fmt::format_to(std::back_inserter(out), "# messages: {} to {}, the last {}\n", first, last, last - first + 1);
    }
    if (!ring.older.empty()) {
        fmt::format_to(std::back_inserter(out), "# older, before a gap: {} (--all shows them too)\n",
                       ring.older.size());
    }
    if (ring.isTorn) {
        out += "# one more was begun, and is not whole\n";
    }
    if (ring.cut != 0) {
        fmt::format_to(std::back_inserter(out), "# cut, since something was too long: {}\n", ring.cut);
    }
}

void appendComponents(std::string& out, const Ring& ring) {
    fmt::format_to(std::back_inserter(out), "# components: {} of at most {}\n", ring.components.size(),
                   ring.componentCapacity);
    for (const Component& component : ring.components) {
        const std::string mask = component.isMaskKnown ? fmt::format("0x{:08x}", component.mask) : "unknown";
        const std::string address = component.isMaskKnown ? fmt::format(" at 0x{:x}", component.address) : "";
        fmt::format_to(std::back_inserter(out), "#   {}: messages {}, mask {}{}\n", visible(component.name),
                       component.messages, mask, address);
    }
    if (ring.unlisted != 0) {
        fmt::format_to(std::back_inserter(out), "#   others: messages {}\n", ring.unlisted);
    }
}

} // namespace

log_line::Line lineOf(const Record& record) {
    return {record.seconds, record.microseconds, record.processId, record.depth, record.level,
            record.thread,  record.component,    record.function,  record.text};
}

std::unique_ptr<RecordOutput> makeOutput(Format format) {
    switch (format) {
    case Format::Json:
        return std::make_unique<LineOutput<log_line::JsonLines>>();
    case Format::Trace:
        return makeTraceOutput();
    case Format::Text:
        break;
    }
    return std::make_unique<LineOutput<log_line::TextLines>>();
}

void appendInfo(std::string& out, const std::string& path, const Ring& ring, bool withComponents) {
    fmt::format_to(std::back_inserter(out), "# {}: process {}{}{}, {}\n# since ", visible(path), ring.processId,
                   ring.applicationName.empty() ? "" : ", application ", visible(ring.applicationName), stateOf(ring));
    Timestamp("%F %T").append(out, ring.createdSeconds, static_cast<int>(ring.createdMicroseconds));
    fmt::format_to(std::back_inserter(out), ", boot {}, start of the process {} ticks later\n", visible(ring.bootId),
                   ring.startTime);
    appendMessageCounts(out, ring);
    if (withComponents) {
        appendComponents(out, ring);
    }
}

} // namespace sorrelctl
