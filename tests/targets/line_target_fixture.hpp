// Log targets that write lines, and the files that they write.
#ifndef SORREL_TESTS_LINE_TARGET_FIXTURE_HPP
#define SORREL_TESTS_LINE_TARGET_FIXTURE_HPP

#include "target_fixture.hpp"

#include <cstdio>
#include <sstream>
#include <string>
#include <unistd.h>
#include <vector>

inline std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        lines.push_back(line);
    }
    return lines;
}

class LineTargetFixture : public TargetFixture {
protected:
    std::string fileTarget(const std::string& parameters = "", const std::string& file = "app.log") {
        return targetPath("file") + ",file=" + files().file(file) + (parameters.empty() ? "" : "," + parameters);
    }

    std::string textOf(const std::string& file) { return files().read(file); }

    // The texts of the messages in a file, which have no spaces.
    std::vector<std::string> textsIn(const std::string& file) {
        std::vector<std::string> texts;
        for (const std::string& line : linesOf(textOf(file))) {
            texts.push_back(line.substr(line.rfind(' ') + 1));
        }
        return texts;
    }

    bool exists(const std::string& file) { return access(files().file(file).c_str(), F_OK) == 0; }

    // Moves a file of the test's directory.
    void move(const std::string& from, const std::string& to) {
        ASSERT_EQ(std::rename(files().file(from).c_str(), files().file(to).c_str()), 0);
    }
};

#endif // SORREL_TESTS_LINE_TARGET_FIXTURE_HPP
