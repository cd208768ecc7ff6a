// What the values of the configuration mean, written down a second time and independently of src/.
#ifndef SORREL_FUZZ_VALUE_GRAMMARS_HPP
#define SORREL_FUZZ_VALUE_GRAMMARS_HPP

#include <map>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace oracle {

// Without the blanks, tabs, line ends, form feeds and vertical tabs around it.
std::string trimmed(const std::string& text);

// The number at the start of a text, as strtol(3) reads it; beyond the range of 32 bits its limits.
int decimal(const std::string& text);

// "8=ERR,16=WARN"
std::vector<std::pair<unsigned int, std::string>> levelDescriptions(const std::string& text);

// "libfile.so, file=/var/log/x, size=3"
struct Target {
    std::string library;
    std::map<std::string, std::string> parameters;
};
Target target(const std::string& value, const std::string& applicationName);

// "net, 0000 0011": the name and the digits; nothing when the value is ignored.
std::optional<std::pair<std::string, std::string>> component(const std::string& value);

// The level mask of binary digits.
unsigned int mask(const std::string& digits);

} // namespace oracle

#endif // SORREL_FUZZ_VALUE_GRAMMARS_HPP
