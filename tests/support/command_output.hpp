// What a command prints.
#ifndef SORREL_TESTS_COMMAND_OUTPUT_HPP
#define SORREL_TESTS_COMMAND_OUTPUT_HPP

#include <array>
#include <cerrno>
#include <cstddef>
#include <cstdio>
#include <gtest/gtest.h>
#include <string>
#include <system_error>

// The command has to succeed.
inline std::string outputOf(const std::string& command) {
    FILE* const pipe = popen(command.c_str(), "re");
    if (pipe == nullptr) {
        throw std::system_error(errno, std::generic_category(), "popen");
    }
    std::string output;
    std::array<char, 4096> buffer{};
    for (std::size_t count = 1; count > 0;) {
        count = std::fread(buffer.data(), 1, buffer.size(), pipe);
        output.append(buffer.data(), count);
    }
    EXPECT_EQ(pclose(pipe), 0) << command << "\n" << output;
    return output;
}

#endif // SORREL_TESTS_COMMAND_OUTPUT_HPP
