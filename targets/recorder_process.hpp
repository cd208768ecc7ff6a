// Who a process is, also after it has ended: process ids are used again, so its start and the boot belong to it.
#ifndef SORREL_TARGETS_RECORDER_PROCESS_HPP
#define SORREL_TARGETS_RECORDER_PROCESS_HPP

#include <cstdint>
#include <fstream>
#include <sstream>
#include <string>

namespace recorder {
namespace {

// Empty where the kernel does not tell.
inline std::string bootId() {
    std::string id;
    std::ifstream("/proc/sys/kernel/random/boot_id") >> id;
    return id;
}

// The clock ticks between boot and start of a process, 0 when no such process runs.
inline std::uint64_t startTimeOf(std::int64_t processId) {
    std::ifstream file("/proc/" + std::to_string(processId) + "/stat");
    std::string line;
    std::getline(file, line);
    const std::string::size_type nameEnd = line.rfind(')'); // the name may hold anything
    if (nameEnd == std::string::npos) {
        return 0;
    }
    constexpr int kFieldsBetween = 18; // behind the state, which is field 3; the start is field 22
    std::istringstream fields(line.substr(nameEnd + 1));
    std::string state;
    fields >> state;
    std::string skipped;
    for (int i = 0; i < kFieldsBetween; ++i) {
        fields >> skipped;
    }
    std::uint64_t ticks = 0;
    fields >> ticks;
    return state == "Z" || state == "X" ? 0 : ticks; // dead, but not yet asked for its status
}

} // namespace
} // namespace recorder

#endif // SORREL_TARGETS_RECORDER_PROCESS_HPP
