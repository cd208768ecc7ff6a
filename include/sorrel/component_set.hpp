// Sets of components as people write them. For log targets and tools. C++17.
//
// All of it is compiled into what includes it, and stays inside.
#ifndef SORREL_COMPONENT_SET_HPP
#define SORREL_COMPONENT_SET_HPP

#include <sorrel/level_set.hpp>

#include <cstddef>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace sorrel {

// Components as people choose them: names joined by ';', in which '*' stands for any characters, or none. Nothing else
// is special.
class SORREL_LOCAL ComponentSet {
public:
    // Throws std::invalid_argument for an empty word, which is no name.
    explicit ComponentSet(const std::string& words) {
        forEachWord(words, [this](const std::string& word) {
            m_patterns.push_back(!word.empty() ? word : throw std::invalid_argument("\"\" is no name"));
        });
    }

    // Allocates memory only for a name that it has not seen before.
    bool contains(const std::string& name) {
        if (m_patterns.size() == 1 && m_patterns.front() == "*") {
            return true;
        }
        const auto known = m_known.find(name);
        return known != m_known.end() ? known->second : m_known.emplace(name, matches(name)).first->second;
    }

private:
    bool matches(const std::string& name) const {
        for (const std::string& pattern : m_patterns) {
            if (matches(pattern, name)) {
                return true;
            }
        }
        return false;
    }

    // What does not fit is tried again with one character more for the last '*'. Earlier ones need no second try: the
    // first place where what follows them fits leaves the most for the rest.
    static bool matches(std::string_view pattern, std::string_view name) {
        std::size_t next = 0; // in the pattern
        std::size_t star = std::string_view::npos;
        std::size_t behindStar = 0; // in the name
        for (std::size_t i = 0; i < name.size();) {
            if (next < pattern.size() && pattern[next] == '*') {
                star = next++;
                behindStar = i;
            } else if (next < pattern.size() && pattern[next] == name[i]) {
                ++next;
                ++i;
            } else if (star != std::string_view::npos) {
                next = star + 1;
                i = ++behindStar;
            } else {
                return false;
            }
        }
        return pattern.find_first_not_of('*', next) == std::string_view::npos;
    }

    std::vector<std::string> m_patterns;
    std::map<std::string, bool> m_known;
};

} // namespace sorrel

#endif // SORREL_COMPONENT_SET_HPP
