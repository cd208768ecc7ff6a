// The target with hand-written tables, loaded by a configuration in a directory of the test's own.
#ifndef SORREL_TESTS_ABI_RAW_TARGET_HPP
#define SORREL_TESTS_ABI_RAW_TARGET_HPP

#include "temp_dir.hpp"

#include <gtest/gtest.h>
#include <sstream>
#include <string>
#include <vector>

class RawTargetFixture : public testing::Test {
protected:
    RawTargetFixture() { m_directory.write("sorrel.cfg", std::string(kTargetLine) + ", file=" + outputFile() + "\n"); }

    static constexpr const char* kTargetLine = "target=" SORREL_TEST_RAW_TARGET;

    const TempDir& directory() const { return m_directory; }

    // What the target wrote down so far.
    std::vector<std::string> calls() const {
        std::istringstream text(m_directory.read("calls"));
        std::vector<std::string> lines;
        for (std::string line; std::getline(text, line);) {
            lines.push_back(line);
        }
        return lines;
    }

private:
    std::string outputFile() const { return m_directory.file("calls"); }

    TempDir m_directory;
};

#endif // SORREL_TESTS_ABI_RAW_TARGET_HPP
