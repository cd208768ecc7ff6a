// Log target that writes to systemd's journal, each value of a message as a field: `target=sorrel-journal.so`. It
// speaks the journal's documented protocol, one datagram an entry: texts are far too short for the form that needs a
// memfd.
#include "service_target.hpp"
#include "text.hpp"
#include "thread_id.hpp"

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

namespace {

class JournalTarget final : public ServiceTarget {
public:
    explicit JournalTarget(sorrel::TargetParameters& parameters)
        : ServiceTarget(parameters, "/run/systemd/journal/socket") {}

private:
    // A value in the short form ends at the line feed, so that only the text may hold some.
    int deliver(const sorrel::Message& message) override {
        m_entry.clear();
        appendText(message.text);
        appendNumber("PRIORITY=", message.priority());
        append("SYSLOG_IDENTIFIER=", ident());
        appendNumber("SYSLOG_PID=", message.processId);
        appendNumber("TID=", threadIdIn(message.processId));
        if (!message.functionName.empty()) {
            append("CODE_FUNC=", message.functionName);
        }
        append("SORREL_COMPONENT=", message.componentName);
        appendNumber("SORREL_DEPTH=", message.depth);
        append("SORREL_THREAD=", message.threadName);
        appendNumber("SORREL_LEVEL_MASK=0x", message.level.mask, 16);
        appendNumber("SORREL_TIMESTAMP=", message.microsecondsSinceEpoch());
        return send(m_entry);
    }

    void append(const char* name, std::string_view value) {
        m_entry += name;
        text::appendVisible(m_entry, value);
        m_entry += '\n';
    }

    template <typename Number>
    void appendNumber(const char* name, Number value, int base = 10) {
        m_entry += name;
        text::appendNumber(m_entry, value, base);
        m_entry += '\n';
    }

    // The long form: the name on a line, the length in eight bytes, little end first, and the value as it is.
    void appendText(std::string_view value) {
        m_entry += "MESSAGE\n";
        const std::size_t lengthAt = m_entry.size();
        m_entry.append(sizeof(std::uint64_t), '\0');
        text::appendVisible(m_entry, value, "\n\t");
        std::uint64_t length = m_entry.size() - lengthAt - sizeof length;
        for (std::size_t i = 0; i < sizeof length; ++i, length >>= 8U) {
            m_entry[lengthAt + i] = static_cast<char>(length & 0xffU);
        }
        m_entry += '\n';
    }

    std::string m_entry;
};

} // namespace

SORREL_TARGET_LIBRARY(JournalTarget, "journal")
