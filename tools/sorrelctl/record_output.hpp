// Messages of rings as text, as JSON lines, and as a trace for viewers.
#ifndef SORREL_TOOLS_RECORD_OUTPUT_HPP
#define SORREL_TOOLS_RECORD_OUTPUT_HPP

#include "ring_reader.hpp"

#include <cstddef>
#include <memory>
#include <string>

namespace log_line {
struct Line;
}

namespace sorrelctl {

enum class Format { Text, Json, Trace };

class RecordOutput {
public:
    RecordOutput() = default;
    RecordOutput(const RecordOutput&) = delete;
    RecordOutput& operator=(const RecordOutput&) = delete;
    virtual ~RecordOutput() = default;

    // Writes and empties a text.
    using Writer = void (*)(std::string& out);
    void setWriter(Writer writer) { m_writer = writer; }

    // Appends the messages of one file to `out`.
    virtual void write(std::string& out, const Ring& ring, const Records& records) = 0;

    // Appends what belongs behind all files.
    virtual void finish(std::string& out) { static_cast<void>(out); }

protected:
    // Called behind each message: with a writer, `out` stays short.
    void passOn(std::string& out) const {
        constexpr std::size_t kBlock = 64 << 10U;
        if (m_writer != nullptr && out.size() >= kBlock) {
            m_writer(out);
        }
    }

private:
    Writer m_writer = nullptr;
};

// The texts are those of the record.
log_line::Line lineOf(const Record& record);

std::unique_ptr<RecordOutput> makeOutput(Format format);

// A trace of Chrome's event format: traced functions as spans, other messages as instants.
std::unique_ptr<RecordOutput> makeTraceOutput();

// What is known about a ring besides its messages, lines that begin with "# "; with the component table when wanted.
void appendInfo(std::string& out, const std::string& path, const Ring& ring, bool withComponents);

} // namespace sorrelctl

#endif // SORREL_TOOLS_RECORD_OUTPUT_HPP
