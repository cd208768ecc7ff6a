// One target of the table, loaded in a container of its own, and all that it has written.
#ifndef SORREL_TESTS_CONTRACT_FIXTURE_HPP
#define SORREL_TESTS_CONTRACT_FIXTURE_HPP

#include "contract_service.hpp"
#include "contract_targets.hpp"
#include "target_fixture.hpp"

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <map>
#include <memory>
#include <sstream>
#include <string>
#include <unistd.h>

// The standard streams go into a file as long as this exists.
class StreamsToFile {
public:
    explicit StreamsToFile(const std::string& path) : m_out(dup(STDOUT_FILENO)), m_err(dup(STDERR_FILENO)) {
        const int fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0600);
        replace(fd, fd);
        close(fd);
    }
    StreamsToFile(const StreamsToFile&) = delete;
    StreamsToFile& operator=(const StreamsToFile&) = delete;
    ~StreamsToFile() {
        replace(m_out, m_err);
        close(m_out);
        close(m_err);
    }

private:
    static void replace(int out, int err) {
        std::fflush(stdout);
        dup2(out, STDOUT_FILENO);
        dup2(err, STDERR_FILENO);
    }

    const int m_out;
    const int m_err;
};

class ContractFixture : public TargetFixture, public testing::WithParamInterface<ContractTarget> {
protected:
    ContractFixture() {
        std::filesystem::create_directory(m_directory);
        if (GetParam().has("{socket}")) {
            startService();
            m_service->read();
        }
        if (GetParam().writesToStreams()) {
            m_streams = std::make_unique<StreamsToFile>(m_directory + "/streams");
        }
    }

    // What is checked while the streams go into the file is reported there.
    ~ContractFixture() override {
        m_streams.reset();
        if (GetParam().writesToStreams() && HasFailure()) {
            const std::string all = written();
            std::puts(all.substr(all.size() - std::min<std::size_t>(all.size(), 2000)).c_str());
        }
    }

    void startService() { m_service = std::make_unique<ContractService>(m_directory + "/socket"); }
    ContractService& service() { return *m_service; }
    void stopService() { m_service.reset(); }

    // Files of the target are made there from now on.
    void setDirectory(const std::string& directory) { m_directory = directory; }

    // The value of a `target` line; each `file` is another one.
    std::string targetLine(const std::string& library = GetParam().library, const std::string& file = "log") const {
        std::string line = library + ", " + GetParam().parameters;
        fill(line, "{file}", m_directory + "/" + file);
        fill(line, "{ring}", m_directory + "/" + file);
        fill(line, "{socket}", m_directory + "/socket");
        return line;
    }

    void loadIt(const std::string& parameters = "") { load(targetLine() + parameters); }

    static constexpr int kMessages = 1000;
    void logMany(int count = kMessages) {
        for (int i = 0; i < count; ++i) {
            log({"message"});
        }
    }

    static bool isMapped() {
        std::ifstream maps("/proc/self/maps");
        const std::string file = std::filesystem::path(GetParam().library).filename().string();
        for (std::string line; std::getline(maps, line);) {
            if (line.find(file) != std::string::npos) {
                return true;
            }
        }
        return false;
    }

    // The files in the directory of the target, each with its content.
    std::map<std::string, std::string> writtenFiles() const {
        std::map<std::string, std::string> files;
        for (const auto& entry : std::filesystem::directory_iterator(m_directory)) {
            std::ostringstream content;
            if (entry.is_regular_file()) {
                content << std::ifstream(entry.path()).rdbuf();
            }
            files[entry.path().filename()] = content.str();
        }
        return files;
    }

    // Everything that the target and its children have written.
    std::string written() {
        std::ostringstream all;
        for (const auto& entry : std::filesystem::directory_iterator(m_directory)) {
            if (entry.is_regular_file()) {
                all << std::ifstream(entry.path()).rdbuf();
            }
        }
        all.clear(); // of an empty file
        return all.str() + (m_service ? m_service->received() : "");
    }

    int countOf(const std::string& text) {
        const std::string all = written();
        int count = 0;
        for (std::size_t i = all.find(text); i != std::string::npos; i = all.find(text, i + text.size())) {
            ++count;
        }
        return count;
    }

    // A service may take a moment.
    bool arrives(const std::string& text, int times = 1) {
        return waitUntil([&] { return countOf(text) >= times; });
    }

    // A service that has much to read takes no more for a while.
    bool getsThrough(const std::string& text) {
        return waitUntil([&] {
            log({text});
            return countOf(text) > 0;
        });
    }

private:
    static void fill(std::string& line, const std::string& place, const std::string& value) {
        const std::size_t found = line.find(place);
        if (found != std::string::npos) {
            line.replace(found, place.size(), value);
        }
    }

    std::string m_directory = files().path() + "/written";
    std::unique_ptr<ContractService> m_service;
    std::unique_ptr<StreamsToFile> m_streams;
};

#endif // SORREL_TESTS_CONTRACT_FIXTURE_HPP
