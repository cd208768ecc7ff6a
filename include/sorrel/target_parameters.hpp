// The parameters of a log target, read and checked. C++17.
//
// All of it is compiled into what includes it, and stays inside.
#ifndef SORREL_TARGET_PARAMETERS_HPP
#define SORREL_TARGET_PARAMETERS_HPP

#include <sorrel/component_set.hpp>
#include <sorrel/level_set.hpp>
#include <sorrel/log_target.hpp>

#include <cerrno>
#include <charconv>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <initializer_list>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>
#include <string>
#include <string_view>
#include <system_error>
#include <utility>

namespace sorrel {

// The parameters of one `target` line, as the constructor of a target reads them. What it asks for is allowed; after it
// everything else is refused. Every reader throws TargetParameters::Error for a value that it does not take.
//
// The parameter "conf" names a file with more of them, for values that are long, or hold ',' or '=': a line NAME=VALUE
// each, with spaces and tabs around both dropped. Empty lines and those that begin with '#' say nothing. What the
// `target` line gives itself counts, and so does the first of two lines. Such a file names no other one.
class SORREL_LOCAL TargetParameters {
public:
    class SORREL_LOCAL Error : public std::runtime_error {
    public:
        using std::runtime_error::runtime_error;
    };

    // Reads the file that "conf" names. The name has to outlive this object and the targets that are made with it.
    TargetParameters(const char* targetName, const std::map<std::string, std::string>& given)
        : m_targetName(targetName), m_given(given), m_asked{TARGET_TOKEN_APPLICATION_NAME()} {
        const std::string* const file = find("conf");
        if (file != nullptr) {
            readFile(std::string(*file));
        }
    }
    TargetParameters(const TargetParameters&) = delete;
    TargetParameters& operator=(const TargetParameters&) = delete;

    // As SORREL_TARGET_LIBRARY says.
    const char* targetName() const { return m_targetName; }

    // The application's name, empty when none is set; or what the line gives as "application-name".
    std::string applicationName() const {
        const auto found = m_given.find(TARGET_TOKEN_APPLICATION_NAME());
        return found != m_given.end() ? found->second : std::string();
    }

    // A text that has to be there.
    std::string text(const std::string& name) {
        const std::string* const value = find(name);
        return value != nullptr ? *value : throw Error("the parameter \"" + name + "\" is missing");
    }

    std::string text(const std::string& name, const std::string& otherwise) {
        const std::string* const value = find(name);
        return value != nullptr ? *value : otherwise;
    }

    // A path that has to be there. A relative one is made absolute, so that it leads to the same place wherever the
    // process goes; not where the process cannot reach its directory from the root.
    std::string path(const std::string& name) { return absolutePath(name, text(name)); }

    std::string path(const std::string& name, const std::string& otherwise) {
        return absolutePath(name, text(name, otherwise));
    }

    // A pattern of paths, in which "%%" stands for a percent sign: made absolute as a path is.
    std::string pathPattern(const std::string& name) { return absolutePattern(name, text(name)); }

    std::string pathPattern(const std::string& name, const std::string& otherwise) {
        return absolutePattern(name, text(name, otherwise));
    }

    // A whole number, in decimal digits, perhaps behind a minus sign, from `least` to `most`.
    template <typename Number>
    Number number(const std::string& name, Number otherwise, Number least, Number most) {
        const std::string* const value = find(name);
        if (value == nullptr) {
            return otherwise;
        }
        Number number = 0;
        const char* const end = value->data() + value->size();
        const std::from_chars_result result = std::from_chars(value->data(), end, number);
        if (result.ec != std::errc() || result.ptr != end || number < least || number > most) {
            refuse(name, *value, "is not a number from " + std::to_string(least) + " to " + std::to_string(most));
        }
        return number;
    }

    // A number of bytes from `least` to `most`: decimal digits, perhaps with k, M or G behind them for 1024, 1024 *
    // 1024 and so on.
    long long bytes(const std::string& name, long long otherwise, long long least = 0,
                    long long most = std::numeric_limits<long long>::max()) {
        const std::string* const value = find(name);
        if (value == nullptr) {
            return otherwise;
        }
        constexpr std::string_view kUnits = "kMG";
        constexpr unsigned int kBitsOfAUnit = 10;
        const std::size_t unit = value->empty() ? std::string_view::npos : kUnits.find(value->back());
        const unsigned int shift =
            unit == std::string_view::npos ? 0 : kBitsOfAUnit * (static_cast<unsigned int>(unit) + 1);
        const char* const end = value->data() + value->size() - (shift == 0 ? 0 : 1);
        long long units = 0;
        const std::from_chars_result result = std::from_chars(value->data(), end, units);
        const bool isSize = result.ec == std::errc() && result.ptr == end && units >= 0 && units <= most >> shift;
        if (!isSize || units << shift < least) {
            refuse(name, *value,
                   "is not a number of bytes from " + std::to_string(least) + " to " + std::to_string(most));
        }
        return units << shift;
    }

    // One of several words.
    template <typename Choice>
    Choice choice(const std::string& name, Choice otherwise,
                  std::initializer_list<std::pair<const char*, Choice>> choices) {
        const std::string* const value = find(name);
        if (value == nullptr) {
            return otherwise;
        }
        std::string words;
        for (const auto& one : choices) {
            if (*value == one.first) {
                return one.second;
            }
            words += std::string(words.empty() ? "" : ", ") + one.first;
        }
        refuse(name, *value, "is none of " + words);
    }

    // A set of levels, all of them when nothing is given.
    LevelSet levels(const std::string& name) {
        const std::string* const value = find(name);
        try {
            return value != nullptr ? LevelSet(*value) : LevelSet(SR_ALL->mask);
        } catch (const std::invalid_argument& error) {
            refuse(name, *value, std::string("is refused: ") + error.what());
        }
    }

    // A set of components, all of them when nothing is given.
    ComponentSet components(const std::string& name) {
        const std::string words = text(name, "*");
        try {
            return ComponentSet(words);
        } catch (const std::invalid_argument& error) {
            refuse(name, words, std::string("is refused: ") + error.what());
        }
    }

    // Throws an Error about a parameter and its value: `why` goes on after them, "is no directory".
    [[noreturn]] static void refuse(const std::string& name, const std::string& value, const std::string& why) {
        throw Error("parameter \"" + name + "\": \"" + value + "\" " + why);
    }

    // Throws when a parameter was given that nobody has asked for.
    void refuseUnknown() const {
        for (const auto& parameter : m_given) {
            if (m_asked.count(parameter.first) == 0) {
                refuse(parameter.first, parameter.second, "is given to a parameter that does not exist");
            }
        }
    }

private:
    const std::string* find(const std::string& name) {
        m_asked.insert(name);
        const auto found = m_given.find(name);
        return found != m_given.end() ? &found->second : nullptr;
    }

    static std::string absolutePath(const std::string& name, const std::string& path) {
        if (path.empty()) {
            refuse(name, path, "is no path");
        }
        std::error_code unreachable; // where the process may not pass the directories above, or its own is gone
        const std::filesystem::path here = std::filesystem::current_path(unreachable);
        return std::filesystem::equivalent(here, ".", unreachable) ? (here / path).string() : path;
    }

    static std::string absolutePattern(const std::string& name, const std::string& pattern) {
        const std::string absolute = absolutePath(name, pattern);
        std::string result;
        for (const char c : absolute.substr(0, absolute.size() - pattern.size())) {
            result.append(c == '%' ? 2 : 1, c);
        }
        return result + pattern;
    }

    void readFile(const std::string& path) {
        std::error_code unknown;
        if (!std::filesystem::is_regular_file(path, unknown)) { // others might block
            refuse("conf", path, "is not a file that can be read");
        }
        std::ifstream file(path);
        if (!file) {
            const int openErrno = errno;
            refuse("conf", path, std::string("cannot be read: ") + std::strerror(openErrno));
        }
        int lineNumber = 0;
        for (std::string line; std::getline(file, line);) {
            ++lineNumber;
            line = trimmed(line);
            const std::string::size_type equals = line.find('=');
            if (line.empty() || line[0] == '#') {
                continue;
            }
            if (equals == 0 || equals == std::string::npos) {
                refuseLine(path, lineNumber, line, "is not NAME=VALUE");
            }
            const std::string name = trimmed(line.substr(0, equals));
            if (name == "conf") {
                refuseLine(path, lineNumber, line, "is for the target line only");
            }
            m_given.emplace(name, trimmed(line.substr(equals + 1)));
        }
    }

    [[noreturn]] static void refuseLine(const std::string& path, int number, const std::string& line,
                                        const std::string& why) {
        throw Error(path + ":" + std::to_string(number) + ": \"" + line + "\" " + why);
    }

    static std::string trimmed(const std::string& text) {
        constexpr const char* kSpace = " \t\r";
        const std::string::size_type first = text.find_first_not_of(kSpace);
        return first == std::string::npos ? std::string()
                                          : text.substr(first, text.find_last_not_of(kSpace) - first + 1);
    }

    const char* const m_targetName;
    std::map<std::string, std::string> m_given;
    std::set<std::string> m_asked;
};

} // namespace sorrel

#endif // SORREL_TARGET_PARAMETERS_HPP
