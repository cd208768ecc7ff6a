// What a `key=value` file means, written down a second time and independently of src/.
#ifndef SORREL_FUZZ_CONFIG_FILE_HPP
#define SORREL_FUZZ_CONFIG_FILE_HPP

#include <string>
#include <utility>
#include <vector>

namespace oracle {

// The lines up to the end of the file or to the first error, and the text of that error in the system log.
struct ConfigFile {
    std::vector<std::pair<std::string, std::string>> lines;
    std::string error;
};

// With `emptyOnes` also the lines whose key or value is empty.
ConfigFile configFile(const std::string& content, const std::string& path, bool emptyOnes);

// Removes the first line from `content` and returns it: up to and with a line feed, or `longest` bytes.
std::string takeLine(std::string& content, std::size_t longest);

// The number that a table keeps for a value.
int numberOf(const std::string& value);

} // namespace oracle

#endif // SORREL_FUZZ_CONFIG_FILE_HPP
