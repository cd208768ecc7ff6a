// Splitting and trimming of configuration texts. The one place that knows Boost; shared with src/config.
#ifndef SORREL_CORE_TEXT_SPLIT_HPP
#define SORREL_CORE_TEXT_SPLIT_HPP

#include "core/default_locale.hpp"

#include <boost/algorithm/string/trim.hpp>
#include <boost/tokenizer.hpp>

#include <string>
#include <vector>

namespace sorrel {

// The pieces of `text` between the delimiters; empty pieces are dropped, blanks are kept.
inline std::vector<std::string> splitAt(const std::string& text, const char* delimiter) {
    const boost::char_separator<char> separator(delimiter, "", boost::drop_empty_tokens);
    const boost::tokenizer<boost::char_separator<char>> pieces(text, separator);
    return std::vector<std::string>(pieces.begin(), pieces.end());
}

// A copy without leading and trailing white space, as a default-constructed locale classifies it.
inline std::string trimmed(const std::string& text) {
    return boost::algorithm::trim_copy(text, defaultLocale());
}

} // namespace sorrel

#endif // SORREL_CORE_TEXT_SPLIT_HPP
