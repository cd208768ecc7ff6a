// The traced functions that a thread is in, as far as its messages tell.
#ifndef SORREL_TARGETS_OPEN_FUNCTIONS_HPP
#define SORREL_TARGETS_OPEN_FUNCTIONS_HPP

#include "log_line.hpp"

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

namespace {

// It is the depth of a message that says which functions have been left: messages that enter or leave one may be
// missing, when a mask was changed meanwhile.
class OpenFunctions {
public:
    // What a message means for the functions that were open before it.
    struct Step {
        std::size_t open;
        std::size_t stay; // so many of them; the others end, the innermost first
        bool enters;      // one more
        bool leaves;      // the outermost one of those that end: the message says nothing else
    };

    Step stepOf(const log_line::Line& message) const { return stepOf(message, m_open); }

    // As if only so many were open, the outermost ones.
    Step stepOf(const log_line::Line& message, std::size_t open) const {
        Step step{open, open, isTrace(message, "entering"), false};
        while (step.stay > 0 && m_functions[step.stay - 1].depth >= message.depth) {
            --step.stay;
        }
        if (step.stay < open) {
            const Function& last = m_functions[step.stay];
            step.leaves = isTrace(message, "leaving") && last.depth == message.depth && last.name == message.function;
        }
        return step;
    }

    // Functions that are left keep their memory, for those that are entered next.
    void take(const Step& step, const log_line::Line& message) {
        m_open = step.stay;
        if (step.enters) {
            if (m_functions.size() == m_open) {
                m_functions.emplace_back();
            }
            m_functions[m_open].depth = message.depth;
            m_functions[m_open].name = message.function;
            ++m_open;
        }
    }

    std::size_t size() const { return m_open; }

    // Of the open ones, the outermost first.
    const std::string& name(std::size_t index) const { return m_functions[index].name; }

private:
    struct Function {
        int depth = 0;
        std::string name;
    };

    static bool isTrace(const log_line::Line& message, std::string_view text) {
        constexpr int kEnterLeave = 8;
        return message.level == kEnterLeave && message.text == text;
    }

    std::vector<Function> m_functions;
    std::size_t m_open = 0;
};

} // namespace

#endif // SORREL_TARGETS_OPEN_FUNCTIONS_HPP
