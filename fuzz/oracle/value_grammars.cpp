// What the values of the configuration mean, written down a second time and independently of src/.
#include "oracle/value_grammars.hpp"

#include <algorithm>
#include <bitset>
#include <sstream>

namespace {

const std::string kWhiteSpace = " \t\n\v\f\r";

bool isWhite(char character) {
    return kWhiteSpace.find(character) != std::string::npos;
}

// What stands between the separators, without the pieces that are empty.
std::vector<std::string> pieces(const std::string& text, char separator) {
    std::istringstream stream(text);
    std::vector<std::string> found;
    for (std::string piece; std::getline(stream, piece, separator);) {
        found.push_back(piece);
    }
    found.erase(std::remove(found.begin(), found.end(), ""), found.end());
    return found;
}

} // namespace

namespace oracle {

std::string trimmed(const std::string& text) {
    const std::size_t first = text.find_first_not_of(kWhiteSpace);
    return first == std::string::npos ? "" : text.substr(first, text.find_last_not_of(kWhiteSpace) - first + 1);
}

int decimal(const std::string& text) {
    std::string rest = text.substr(std::min(text.find_first_not_of(kWhiteSpace), text.size()));
    const bool negative = rest.rfind('-', 0) == 0;
    if (negative || rest.rfind('+', 0) == 0) {
        rest.erase(0, 1);
    }
    rest.erase(std::min(rest.find_first_not_of("0123456789"), rest.size()));
    rest.erase(0, rest.find_first_not_of('0'));
    const long long limit = negative ? 2147483648 : 2147483647;
    const long long size = rest.empty() ? 0 : rest.size() > 10 ? limit : std::min(std::stoll(rest), limit);
    return static_cast<int>(negative ? -size : size);
}

std::vector<std::pair<unsigned int, std::string>> levelDescriptions(const std::string& text) {
    std::vector<std::pair<unsigned int, std::string>> result;
    for (const std::string& entry : pieces(text, ',')) {
        const std::vector<std::string> sides = pieces(entry, '=');
        if (sides.size() == 2) {
            result.push_back({static_cast<unsigned int>(decimal(sides.front())), sides.back()});
        }
    }
    return result;
}

// A name that is met later does not count: so from right to left, each one replacing those behind it.
Target target(const std::string& value, const std::string& applicationName) {
    std::vector<std::string> entries = pieces(trimmed(value), ',');
    Target result;
    result.parameters["application-name"] = applicationName;
    for (; entries.size() > 1; entries.pop_back()) {
        const std::vector<std::string> sides = pieces(entries.back(), '=');
        if (sides.size() == 2) {
            result.parameters[trimmed(sides.front())] = trimmed(sides.back());
        }
    }
    result.library = entries.empty() ? "" : trimmed(entries.front());
    return result;
}

std::optional<std::pair<std::string, std::string>> component(const std::string& value) {
    const std::vector<std::string> parts = pieces(trimmed(value), ',');
    if (parts.size() != 2) {
        return std::nullopt;
    }
    std::string digits;
    std::remove_copy_if(parts.back().begin(), parts.back().end(), std::back_inserter(digits), isWhite);
    return std::make_pair(trimmed(parts.front()), digits);
}

unsigned int mask(const std::string& digits) {
    std::bitset<32> bits;
    for (std::size_t bit = 0; bit < std::min<std::size_t>(32, digits.size()); ++bit) {
        bits[bit] = digits[digits.size() - 1 - bit] == '1';
    }
    return static_cast<unsigned int>(bits.to_ulong());
}

} // namespace oracle
