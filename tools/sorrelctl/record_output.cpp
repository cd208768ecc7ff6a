// Lines of text and of JSON, in the forms that the file target writes; and what is known about a ring.
#include "record_output.hpp"

#include "text.hpp"
#include "timestamp.hpp"

#include <sorrel/level_set.hpp>

#include <algorithm>
#include <fmt/format.h>
#include <iterator>

namespace sorrelctl {

namespace {

std::string visible(std::string_view text) {
    std::string shown;
    text::appendVisible(shown, text);
    return shown;
}

class TextOutput final : public RecordOutput {
public:
    void write(std::string& out, const Ring& /*ring*/, const std::vector<Record>& records) override {
        constexpr std::int32_t kDeepest = 100; // a damaged depth must not fill the screen
        constexpr std::int32_t kIndent = 2;
        for (const Record& record : records) {
            m_time.append(out, record.seconds, record.microseconds);
            fmt::format_to(std::back_inserter(out), " {:<6} {:<8} {:<10} {:{}}", levelText(record.level),
                           visible(record.component), visible(record.thread), "",
                           std::clamp(record.depth, 0, kDeepest) * kIndent);
            if (!record.function.empty()) {
                out += "[" + visible(record.function) + "] ";
            }
            text::appendVisible(out, record.text);
            out += '\n';
        }
    }

private:
    Timestamp m_time{"%F %T"};
};

class JsonOutput final : public RecordOutput {
public:
    void write(std::string& out, const Ring& /*ring*/, const std::vector<Record>& records) override {
        for (const Record& record : records) {
            out += "{\"time\":\"";
            m_time.append(out, record.seconds, record.microseconds);
            out += "\",\"pid\":" + std::to_string(record.processId) + ",\"thread\":";
            text::appendJson(out, record.thread);
            out += ",\"level\":\"" + levelText(record.level) + "\",\"component\":";
            text::appendJson(out, record.component);
            out += ",\"depth\":" + std::to_string(record.depth) + ",\"function\":";
            text::appendJson(out, record.function);
            out += ",\"text\":";
            text::appendJson(out, record.text);
            out += "}\n";
        }
    }

private:
    Timestamp m_time{"%FT%T", "%z"};
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

std::string levelText(int numeric) {
    const char* const name = sorrel::levelName(numeric);
    return name != nullptr ? name : std::to_string(numeric);
}

std::unique_ptr<RecordOutput> makeOutput(Format format) {
    switch (format) {
    case Format::Json:
        return std::make_unique<JsonOutput>();
    case Format::Trace:
        return makeTraceOutput();
    case Format::Text:
        break;
    }
    return std::make_unique<TextOutput>();
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
