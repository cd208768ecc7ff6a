// This library, with one of its targets.
#include "../configuration_directory.hpp"
#include "line_peer.hpp"

#include <sorrel/level.h>
#include <sorrel/sorrel.h>

#include <fcntl.h>
#include <unistd.h>

namespace {

sorrel_component* component = nullptr;

bool redirectStandardError(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0640);
    return fd != -1 && dup2(fd, STDERR_FILENO) != -1;
}

} // namespace

// Further ways: "console", which is told to write to standard error, and "limited", which may rotate the file.
bool linePeer::start(const std::string& way, const std::string& path) {
    static const ConfigurationDirectory configuration;
    const std::string file = "target=" SORREL_BENCH_FILE_TARGET ",file=" + path;
    if (way == "buffered") {
        configuration.write("sorrel.cfg", file + ",flush=err\n");
    } else if (way == "always") {
        configuration.write("sorrel.cfg", file + "\n");
    } else if (way == "limited") {
        configuration.write("sorrel.cfg", file + ",max_size=1G\n");
    } else if (way == "console" && redirectStandardError(path)) {
        configuration.write("sorrel.cfg", "target=" SORREL_BENCH_CONSOLE_TARGET ",stream=stderr\n");
    } else {
        return false;
    }
    component =
        sorrel_create_component("bench", sorrel::sorrel_bitwise_or_collection({SR_ERR, SR_INFO}), "8=ERR,64=INFO");
    return true;
}

void linePeer::logMessage(const char* word, int number, double fraction) {
    _sorrel(component, SR_INFO, "%s %d %f", word, number, fraction);
}

void linePeer::logError() {
    _sorrel(component, SR_ERR, "the end");
}
