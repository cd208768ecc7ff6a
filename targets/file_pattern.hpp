// Patterns of paths, as parameters hold them: %p stands for the process id, %a for the application's name, %% for a
// percent sign.
#ifndef SORREL_TARGETS_FILE_PATTERN_HPP
#define SORREL_TARGETS_FILE_PATTERN_HPP

#include <cerrno>
#include <stdexcept>
#include <string>
#include <unistd.h>

namespace {

class FilePattern {
public:
    static constexpr char kProcessId = '\0';

    // An application without a name has that of the program. Throws std::invalid_argument for a '%' before anything
    // else.
    FilePattern(const std::string& pattern, const std::string& applicationName) {
        for (std::string::size_type i = 0; i < pattern.size(); ++i) {
            if (pattern[i] != '%') {
                m_text += pattern[i];
                continue;
            }
            ++i;
            const char directive = i < pattern.size() ? pattern[i] : '\0';
            if (directive == 'a') {
                m_text += harmless(applicationName.empty() ? program_invocation_short_name : applicationName);
            } else if (directive == 'p' || directive == '%') {
                m_text += directive == 'p' ? kProcessId : '%';
            } else {
                throw std::invalid_argument("holds a % that is none of %p, %a and %%");
            }
        }
    }

    // With kProcessId for %p.
    const std::string& text() const { return m_text; }

    bool hasProcessId() const { return m_text.find(kProcessId) != std::string::npos; }

    std::string pathFor(pid_t processId) const {
        std::string path;
        for (const char c : m_text) {
            path += c == kProcessId ? std::to_string(processId) : std::string(1, c);
        }
        return path;
    }

private:
    // A name comes from anywhere; here it must stay the name of one file.
    static std::string harmless(std::string name) {
        for (char& c : name) {
            const auto byte = static_cast<unsigned char>(c);
            if (c == '/' || byte < 0x20 || byte == 0x7f) {
                c = '_';
            }
        }
        if (!name.empty() && name[0] == '.') {
            name[0] = '_';
        }
        return name;
    }

    std::string m_text;
};

} // namespace

#endif // SORREL_TARGETS_FILE_PATTERN_HPP
