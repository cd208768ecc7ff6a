// Logging straight to syslog, under a level kept in one file for all programs. The library's own diagnostic channel: it
// knows nothing of the rest of the library.
#include <sorrel/tangle_log.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <syslog.h>
#include <unistd.h>

namespace {

constexpr char kLevelFile[] = "/etc/tanglelog.cfg";
constexpr char kVerboseSwitch[] = "SORREL_VERBOSE_STARTUP";
constexpr char kSyslogdPidFile[] = "/var/run/syslogd.pid";
constexpr int kAllPriorities = 0xff;
constexpr int kDefaultLevel = LOG_DEBUG;

enum class Verbosity { kUnknown, kSilent, kVerbose };

// Looked up once. Not a guarded static: a signal handler and a forked child may be the first to ask.
bool tangleVerbose() {
    static std::atomic<Verbosity> known{Verbosity::kUnknown};
    Verbosity verbosity = known.load(std::memory_order_relaxed);
    if (verbosity == Verbosity::kUnknown) {
        const char* const value = getenv(kVerboseSwitch);
        const bool verbose = value != nullptr && std::strcmp(value, "1") == 0;
        Verbosity unknown = Verbosity::kUnknown;
        known.compare_exchange_strong(unknown, verbose ? Verbosity::kVerbose : Verbosity::kSilent);
        verbosity = known.load(std::memory_order_relaxed);
    }
    return verbosity == Verbosity::kVerbose;
}

// Points into the C library's own copy, so that openlog may keep it.
const char* programName() {
    return basename(program_invocation_short_name);
}

// The second word of a line, as a level; -1 when there is none or it is negative.
int levelOf(char* line) {
    char* rest = nullptr;
    strtok_r(line, " ", &rest);
    const char* const word = strtok_r(nullptr, " ", &rest);
    return word != nullptr ? static_cast<int>(std::clamp<long>(std::strtol(word, nullptr, 10), -1, INT_MAX)) : -1;
}

// The level of the first line that contains the program's name. Deliberate: anywhere in the line, so that the line of a
// longer name serves as well.
int readLevel(std::FILE* file) {
    char line[80];
    while (std::fgets(line, sizeof line, file) != nullptr) {
        if (char* const match = std::strstr(line, programName())) {
            return levelOf(match);
        }
    }
    return -1;
}

// This program's level, or -1 when it has none.
int readTangleLevel() {
    std::FILE* const file = std::fopen(kLevelFile, "re");
    if (file == nullptr) {
        return -1;
    }
    const int level = readLevel(file);
    std::fclose(file);
    return level;
}

void appendDefaultEntry() {
    if (std::FILE* const file = std::fopen(kLevelFile, "a+e")) {
        std::fprintf(file, "%s %i\n", programName(), kDefaultLevel);
        std::fclose(file);
    }
}

// All priorities from 0 to the level. From 31 on every bit is set: one more could not be shifted.
void letPassUpTo(int level) {
    const unsigned int priorities = level < 31 ? (2U << static_cast<unsigned int>(level)) - 1 : ~0U;
    setlogmask(static_cast<int>(priorities));
}

// Reads files and writes to syslog in signal context, by design.
void onTangleLevelSignal(int) {
    const int savedErrno = errno;
    const int level = readTangleLevel();
    if (level >= 0) {
        letPassUpTo(level);
        if (level != 0) {
            sorrel::sorrel_tangleLog(level, "[loglevel for %s set to %d]", programName(), level);
        }
    }
    errno = savedErrno;
}

} // namespace

void sorrel::sorrel_tangleLog(int priority, const char* format, ...) {
    const int savedErrno = errno;
    if (tangleVerbose()) {
        char text[1024];
        text[0] = '\0';
        va_list args;
        va_start(args, format);
        vsnprintf(text, sizeof text, format, args);
        va_end(args);
        syslog(priority, "%s", text);
    }
    errno = savedErrno;
}

void sorrel::sorrel_tangleLogInit() {
    openlog(programName(), LOG_PID | LOG_NDELAY, LOG_USER);
    int level = readTangleLevel();
    if (level == -1) {
        appendDefaultEntry();
        setlogmask(kAllPriorities);
        level = kDefaultLevel;
    } else {
        letPassUpTo(level);
    }
    if (level != 0 && access(kSyslogdPidFile, R_OK) == 0) {
        sorrel_tangleLog(level, "[Log level for %s set to %d]", programName(), level);
    }
    std::signal(SIGUSR1, onTangleLevelSignal);
}
