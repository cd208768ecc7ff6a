// What a `key=value` file means, written down a second time and independently of src/.
#include "oracle/config_file.hpp"

#include "oracle/value_grammars.hpp"

#include <algorithm>
#include <limits>

namespace {

constexpr std::size_t kLongestLine = 1023;
constexpr std::size_t kLongestText = 255;

bool isHigh(char character) {
    return static_cast<unsigned char>(character) > 0x7f;
}

std::string withoutHighBytes(std::string text) {
    text.erase(std::remove_if(text.begin(), text.end(), isHigh), text.end());
    return text;
}

std::string withoutBlanks(std::string text) {
    text.erase(std::remove(text.begin(), text.end(), ' '), text.end());
    return text;
}

// A key of 255 characters may not be followed by any other byte, not even by one that is left out.
bool isKeyTooLong(const std::string& text) {
    const std::string allButLast = text.substr(0, text.empty() ? 0 : text.size() - 1);
    return withoutBlanks(withoutHighBytes(allButLast)).size() >= kLongestText;
}

// Fills key and value from one line. Returns what is wrong with it, or an empty text.
std::string readLine(const std::string& line, std::string& key, std::string& value) {
    const std::size_t end = line.find_first_of(std::string("\n\r\0", 3));
    const std::string text = line.substr(0, end);
    const std::size_t equals = text.find('=');
    const std::string left = text.substr(0, equals);
    if (isKeyTooLong(left)) {
        return "max. key length exceeded";
    }
    key = withoutBlanks(withoutHighBytes(left));
    value.clear();
    if (equals != std::string::npos) {
        const std::size_t start = text.find_first_not_of(' ', equals + 1);
        value = start == std::string::npos ? "" : withoutHighBytes(text.substr(start));
    }
    if (value.size() > kLongestText) {
        return "max. value length exceeded";
    }
    return end == std::string::npos || line[end] == '\0' ? "non-terminated entry" : "";
}

} // namespace

namespace oracle {

std::string takeLine(std::string& content, std::size_t longest) {
    const std::size_t lineFeed = content.find('\n');
    const std::size_t whole = lineFeed == std::string::npos ? content.size() : lineFeed + 1;
    const std::string line = content.substr(0, std::min(whole, longest));
    content.erase(0, line.size());
    return line;
}

ConfigFile configFile(const std::string& content, const std::string& path, bool emptyOnes) {
    ConfigFile result;
    std::string rest = content;
    for (int number = 1; !rest.empty(); ++number) {
        const std::string line = takeLine(rest, kLongestLine);
        if (line.front() == '#') {
            continue;
        }
        std::string key;
        std::string value;
        const std::string problem = readLine(line, key, value);
        if (!problem.empty()) {
            result.error = "cfread: " + problem + " in " + path + " at line " + std::to_string(number);
            return result;
        }
        if (emptyOnes || (!key.empty() && !value.empty())) {
            result.lines.emplace_back(key, value);
        }
    }
    return result;
}

int numberOf(const std::string& value) {
    if (value == "true" || value == "false") {
        return value == "true" ? 1 : 0;
    }
    const std::string digits = value.substr(value.find_first_of("+-") == 0 ? 1 : 0);
    if (value.empty() || digits.find_first_not_of("0123456789") != std::string::npos) {
        return -1;
    }
    const int number = decimal(value);
    const bool extreme = number == std::numeric_limits<int>::max() || number == std::numeric_limits<int>::min();
    return extreme ? -1 : number;
}

} // namespace oracle
