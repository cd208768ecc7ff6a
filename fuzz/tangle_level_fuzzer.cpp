// The file of syslog levels, beside the oracle: the mask at the start and after SIGUSR1, and the line that is appended.
#include <sorrel/tangle_log.h>

#include "oracle/config_file.hpp"
#include "oracle/value_grammars.hpp"
#include "support/difference.hpp"
#include "support/memory_file.hpp"

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <dlfcn.h>
#include <syslog.h>

namespace {

constexpr std::size_t kLongestLine = 79;
constexpr int kOtherMask = LOG_MASK(LOG_ALERT) | LOG_MASK(LOG_NOTICE); // what no level gives

const std::string kLevelFile = "/etc/tanglelog.cfg";
char programName[] = "prog";

MemoryFile& levelFile() {
    static MemoryFile file;
    return file;
}

// The level in a line: the word behind the one that starts with the program's name.
std::optional<int> levelIn(const std::string& line) {
    const std::size_t blank = line.find(' ', line.find(programName));
    const std::size_t word = line.find_first_not_of(' ', blank);
    if (blank == std::string::npos || word == std::string::npos) {
        return std::nullopt;
    }
    const int level = oracle::decimal(line.substr(word, line.find(' ', word) - word));
    return level < 0 ? std::nullopt : std::optional<int>(level);
}

std::optional<int> expectedLevel(std::string content) {
    while (!content.empty()) {
        const std::string text = oracle::takeLine(content, kLongestLine).c_str(); // ends at a character of value 0
        if (text.find(programName) != std::string::npos) {
            return levelIn(text);
        }
    }
    return std::nullopt;
}

// A bit for each priority from 0 to the level; there are 32 bits.
int maskUpTo(int level) {
    int mask = 0;
    for (int priority = 0; priority <= std::min(level, 31); ++priority) {
        mask |= static_cast<int>(1U << static_cast<unsigned int>(priority));
    }
    return mask;
}

} // namespace

extern "C" std::FILE* fopen(const char* path, const char* mode) {
    static auto* const real = reinterpret_cast<std::FILE* (*)(const char*, const char*)>(dlsym(RTLD_NEXT, "fopen"));
    return real(path == kLevelFile ? levelFile().path().c_str() : path, mode);
}

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    program_invocation_short_name = programName;
    const std::string content(reinterpret_cast<const char*>(data), size);
    const std::optional<int> level = expectedLevel(content);
    levelFile().write(content);

    setlogmask(kOtherMask);
    sorrel::sorrel_tangleLogInit();
    expectSame("mask at the start", setlogmask(kOtherMask), level ? maskUpTo(*level) : 0xff);
    expectSame("file", levelFile().read(), level ? content : content + "prog 7\n");

    levelFile().write(content);
    std::raise(SIGUSR1);
    expectSame("mask after the signal", setlogmask(kOtherMask), level ? maskUpTo(*level) : kOtherMask);
    return 0;
}
