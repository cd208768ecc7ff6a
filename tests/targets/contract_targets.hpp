// The targets that keep the contract: one line each.
#ifndef SORREL_TESTS_CONTRACT_TARGETS_HPP
#define SORREL_TESTS_CONTRACT_TARGETS_HPP

#include <cstdlib>
#include <gtest/gtest.h>
#include <ostream>
#include <string>
#include <vector>

// A plug-in, and the parameters with which it is loaded. In these stand
//
//     {file}    for a file that the target makes, and that grows with each message
//     {ring}    for a file that the target makes, and whose size stays as it is
//     {socket}  for a datagram socket that a service listens at
//
// A target without any of them writes to the standard streams.
struct ContractTarget {
    std::string name; // in the names of tests, and in its diagnostics: "NAME-target: "
    std::string library;
    std::string parameters;

    bool has(const std::string& place) const { return parameters.find(place) != std::string::npos; }
    bool writesToStreams() const { return !has("{"); }
};

// For INSTANTIATE_TEST_SUITE_P.
inline std::string nameOfTarget(const testing::TestParamInfo<ContractTarget>& info) {
    return info.param.name;
}

inline void PrintTo(const ContractTarget& target, std::ostream* out) {
    *out << target.name;
}

// Those of this tree; or the one of an author who runs this program with SORREL_CONTRACT_TARGET=PLUG-IN,
// SORREL_CONTRACT_NAME=NAME and SORREL_CONTRACT_PARAMETERS=PARAMETERS.
inline std::vector<ContractTarget> contractTargets() {
    const char* const library = std::getenv("SORREL_CONTRACT_TARGET");
    if (library != nullptr) {
        const char* const name = std::getenv("SORREL_CONTRACT_NAME");
        const char* const parameters = std::getenv("SORREL_CONTRACT_PARAMETERS");
        return {{name != nullptr ? name : "yours", library, parameters != nullptr ? parameters : ""}};
    }
    return {
        {"console", SORREL_TEST_TARGET_DIR "/sorrel-console.so", "stream=stdout"},
        {"file", SORREL_TEST_TARGET_DIR "/sorrel-file.so", "file={file}"},
        {"trace", SORREL_TEST_TARGET_DIR "/sorrel-trace.so", "file={file}-%p"},
        {"recorder", SORREL_TEST_TARGET_DIR "/sorrel-recorder.so", "file={ring}"},
        {"syslog", SORREL_TEST_TARGET_DIR "/sorrel-syslog.so", "socket={socket}"},
        {"journal", SORREL_TEST_TARGET_DIR "/sorrel-journal.so", "socket={socket}"},
        {"minimal", SORREL_TEST_MINIMAL_TARGET, ""},
        {"datagram", SORREL_TEST_PLUGIN_DIR "/datagram.so", "socket={socket}"},
    };
}

// Those whose parameters name one of the places above.
inline std::vector<ContractTarget> contractTargetsWith(const std::string& place) {
    std::vector<ContractTarget> found;
    for (const ContractTarget& target : contractTargets()) {
        if (target.has(place)) {
            found.push_back(target);
        }
    }
    return found;
}

#endif // SORREL_TESTS_CONTRACT_TARGETS_HPP
