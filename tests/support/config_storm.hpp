// A configuration that is rewritten without pause while anybody may read it.
#ifndef SORREL_TESTS_CONFIG_STORM_HPP
#define SORREL_TESTS_CONFIG_STORM_HPP

#include "plugin_path.hpp"

#include <bitset>
#include <cstdlib>
#include <fcntl.h>
#include <string>
#include <system_error>
#include <unistd.h>

// The target "recording" always, "recording_b" in every second state, and the component "dial" with the state as its
// mask. All states are of one length; the line of the target that is absent has a key that nobody knows.
inline std::string stormConfiguration(unsigned int state) {
    const std::string second = state % 2 == 0 ? "absent=" : "target=";
    return "target=" + pluginPath("recording") + ",\n" + second + pluginPath("recording_b") + ",\ncomponent=dial," +
           std::bitset<32>(state).to_string() + "\n";
}

// Overwrites the file without emptying it first, so that it is whole for every reader.
inline void overwriteConfiguration(unsigned int state) {
    const std::string path = std::string(std::getenv("SORL_PATH")) + "/sorrel.cfg";
    const std::string text = stormConfiguration(state);
    const int fd = open(path.c_str(), O_WRONLY | O_CLOEXEC);
    const ssize_t written = write(fd, text.data(), text.size());
    if (written != static_cast<ssize_t>(text.size()) || close(fd) != 0) {
        throw std::system_error(errno, std::generic_category(), path);
    }
}

#endif // SORREL_TESTS_CONFIG_STORM_HPP
