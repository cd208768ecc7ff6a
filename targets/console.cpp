// Log target that writes each message as a line to standard output or standard error: `target=sorrel-console.so,
// stream=stderr`. docs/TARGETS.md describes its parameters.
#include "log_line.hpp"
#include "standard_stream.hpp"
#include "text.hpp"
#include "timestamp.hpp"
#include "wait_parameter.hpp"

#include <sorrel/target_library.hpp>

#include <cstdlib>
#include <fmt/compile.h>
#include <iterator>
#include <string>
#include <string_view>
#include <unistd.h>

namespace {

enum class Colour { Auto, Always, Never };
enum class Time { Unset, Clock, Iso, Relative, None };

constexpr const char* kNoColour = "\x1b[0m";

// Bold red for the gravest, grey for what is logged most.
const char* colourOf(int numeric) {
    constexpr const char* kColours[sorrel::kNamedLevels] = {"\x1b[1;31m", "\x1b[1;31m", "\x1b[1;31m",
                                                            "\x1b[31m",   "\x1b[33m",   "\x1b[1m",
                                                            "\x1b[32m",   "\x1b[36m",   "\x1b[90m"};
    return numeric >= 0 && numeric < sorrel::kNamedLevels ? kColours[numeric] : kNoColour;
}

// What people and programs say who want no colours.
bool environmentTakesColour() {
    const char* const refusal = std::getenv("NO_COLOR");
    const char* const terminal = std::getenv("TERM");
    return (refusal == nullptr || *refusal == '\0') && terminal != nullptr && *terminal != '\0' &&
           terminal != std::string_view("dumb");
}

class ConsoleTarget final : public sorrel::MessageTarget {
public:
    explicit ConsoleTarget(sorrel::TargetParameters& parameters)
        : MessageTarget(parameters),
          m_stream(parameters.choice("stream", STDOUT_FILENO, {{"stdout", STDOUT_FILENO}, {"stderr", STDERR_FILENO}}),
                   waitFrom(parameters)),
          m_colour(parameters.choice("colour", Colour::Auto,
                                     {{"auto", Colour::Auto}, {"always", Colour::Always}, {"never", Colour::Never}})),
          m_time(parameters.choice(
              "time", Time::Unset,
              {{"clock", Time::Clock}, {"iso", Time::Iso}, {"relative", Time::Relative}, {"none", Time::None}})) {
        constexpr std::size_t kLongLine = 16384;
        m_line.reserve(kLongLine);
    }

private:
    int deliver(const sorrel::Message& message) override {
        m_stream.look(message.seconds);
        m_line.clear();
        if (m_stream.isJournal()) {
            m_line += '<';
            text::appendNumber(m_line, message.priority());
            m_line += '>';
        }
        appendTime(message);
        if (isColoured()) {
            m_line += colourOf(message.level.numeric);
            log_line::appendLevelColumn(m_line, message.level.numeric);
            m_line += kNoColour;
        } else {
            log_line::appendLevelColumn(m_line, message.level.numeric);
        }
        log_line::appendRest(m_line, log_line::lineOf(message));
        return m_stream.write(m_line);
    }

    bool isColoured() const {
        return m_colour == Colour::Always ||
               (m_colour == Colour::Auto && m_stream.isTerminal() && m_environmentTakesColour);
    }

    // The journal has the time already.
    void appendTime(const sorrel::Message& message) {
        const Time time = m_time != Time::Unset ? m_time : m_stream.isJournal() ? Time::None : Time::Clock;
        if (time == Time::Clock) {
            m_clock.append(m_line, message.seconds, message.microseconds);
        } else if (time == Time::Iso) {
            m_iso.append(m_line, message.seconds, message.microseconds);
            m_line += ' ';
        } else if (time == Time::Relative) {
            appendRelativeTime(message);
        }
    }

    // Seconds since the first message. Begins again when the clock was set back.
    void appendRelativeTime(const sorrel::Message& message) {
        const long long now = message.microsecondsSinceEpoch();
        if (m_start == kNever || now < m_start) {
            m_start = now;
        }
        const long long passed = now - m_start;
        fmt::format_to(std::back_inserter(m_line), FMT_COMPILE("{:>6}.{:06} "), passed / sorrel::Message::kSecond,
                       passed % sorrel::Message::kSecond);
    }

    static constexpr long long kNever = -1;

    StandardStream m_stream;
    const Colour m_colour;
    const bool m_environmentTakesColour = environmentTakesColour();
    const Time m_time;
    Timestamp m_clock{"%T", " "};
    Timestamp m_iso{"%FT%T", "%z"};
    long long m_start = kNever;
    std::string m_line;
};

} // namespace

SORREL_TARGET_LIBRARY(ConsoleTarget, "console")
