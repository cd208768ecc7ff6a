// Which printf directives have a meaning that is written down, and so a result that can be foretold.
#include "oracle/directives.hpp"

#include <algorithm>
#include <regex>

namespace {

bool hasLargeNumber(const std::string& text) {
    std::size_t digits = 0;
    return std::any_of(text.begin(), text.end(), [&](char character) {
        digits = character >= '0' && character <= '9' ? digits + 1 : 0;
        return digits == 4;
    });
}

} // namespace

bool oracle::isWellFormed(const std::string& text) {
    static const std::regex directive("%(%|m|[-+ #0'I]*([*]|[0-9]{0,3})([.]([*]|[0-9]{0,3}))?(hh?|ll?|[qLjzZt])?"
                                      "[diouxXaAeEfFgGsS])");
    std::smatch match;
    for (auto next = text.begin(); (next = std::find(next, text.end(), '%')) != text.end();) {
        if (!std::regex_search(next, text.end(), match, directive, std::regex_constants::match_continuous)) {
            return false;
        }
        next = match[0].second;
    }
    return true;
}

bool oracle::isSpecial(const std::string& text) {
    return text.find_first_of("$w*") != std::string::npos || hasLargeNumber(text);
}
