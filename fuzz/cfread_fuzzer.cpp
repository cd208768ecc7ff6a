// Files read line by line into a callback, beside the oracle: keys, values, the error, and where it stands.
#include <sorrel/cfread.h>

#include "oracle/config_file.hpp"
#include "support/difference.hpp"
#include "support/memory_file.hpp"
#include "support/recorded_syslog.hpp"

#include <algorithm>
#include <cstdint>

namespace {

using Lines = std::vector<std::pair<std::string, std::string>>;

const std::string kLastKey = "stop"; // the callback ends the parse at this key

int keepLine(const char* key, const char* value, void* lines) {
    static_cast<Lines*>(lines)->emplace_back(key, value);
    return key == kLastKey ? 1 : 0;
}

// What a callback sees that ends the parse.
void endAtLastKey(oracle::ConfigFile& file) {
    const auto last =
        std::find_if(file.lines.begin(), file.lines.end(), [](const auto& line) { return line.first == kLastKey; });
    if (last != file.lines.end()) {
        file.lines.erase(last + 1, file.lines.end());
        file.error.clear();
    }
}

void compare(const MemoryFile& file, const std::string& content, bool emptyOnes) {
    Lines lines;
    const int rc = cfread_parse_with_callback(file.path().c_str(), keepLine, &lines, emptyOnes ? 1 : 0);
    oracle::ConfigFile expected = oracle::configFile(content, file.path(), emptyOnes);
    endAtLastKey(expected);
    expectSame("lines", lines, expected.lines);
    expectSame("error", takeSyslog(), expected.error);
    expectSame("result", rc, expected.error.empty() ? 0 : -1);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    static MemoryFile file;
    const std::string content(reinterpret_cast<const char*>(data), size);
    file.write(content);
    compare(file, content, false);
    compare(file, content, true);
    return 0;
}
