// Messages that show to their receiver whether one of them is missing, doubled, late or torn.
#ifndef SORREL_TESTS_STORM_MESSAGES_HPP
#define SORREL_TESTS_STORM_MESSAGES_HPP

#include <array>
#include <cstdio>
#include <string>

namespace storm {

constexpr std::size_t kMaxSenders = 16;

// The name that the thread of a sender has to have.
inline std::string senderName(std::size_t sender) {
    return "sender " + std::to_string(sender);
}

// Sender and number, over and over: at least 240 bytes, no part of which fits into another message.
inline std::string numberedText(std::size_t sender, unsigned long number) {
    const std::string unit = std::to_string(sender) + ":" + std::to_string(number) + " ";
    std::string text;
    while (text.size() < 240) {
        text += unit;
    }
    return text;
}

// A sender's messages from number `first` to the one before `end`, as a tally reports them.
inline std::string rangeOf(std::size_t sender, unsigned long first, unsigned long end) {
    return std::to_string(sender) + ":" + std::to_string(first) + "-" + std::to_string(end) + " ";
}

// What one receiver got. The first message of a sender may have any number; each that follows has to be the next one.
class Tally {
public:
    void add(const std::string& threadName, const std::string& text) {
        std::size_t sender = kMaxSenders;
        unsigned long number = 0;
        const bool isParsed = std::sscanf(text.c_str(), "%zu:%lu ", &sender, &number) == 2 && sender < kMaxSenders;
        if (!isParsed || text != numberedText(sender, number) || threadName != senderName(sender)) {
            noteFault("torn message of \"" + threadName + "\": " + text);
            return;
        }
        Range& range = m_ranges[sender];
        if (range.isEmpty) {
            range = {false, number, number};
        }
        if (number != range.end) {
            noteFault(threadName + " sent " + std::to_string(number) + " where " + std::to_string(range.end) +
                      " was due");
        }
        range.end = number + 1;
    }

    // The first fault, or the ranges of all senders that sent something.
    std::string report() const {
        if (!m_fault.empty()) {
            return m_fault;
        }
        std::string text;
        for (std::size_t sender = 0; sender < kMaxSenders; ++sender) {
            const Range& range = m_ranges[sender];
            text += range.isEmpty ? "" : rangeOf(sender, range.first, range.end);
        }
        return text;
    }

    bool hasFault() const { return !m_fault.empty(); }

private:
    struct Range {
        bool isEmpty = true;
        unsigned long first = 0;
        unsigned long end = 0;
    };

    void noteFault(const std::string& fault) { m_fault = m_fault.empty() ? "FAULT: " + fault : m_fault; }

    std::array<Range, kMaxSenders> m_ranges;
    std::string m_fault;
};

} // namespace storm

#endif // SORREL_TESTS_STORM_MESSAGES_HPP
