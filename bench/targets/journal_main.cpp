// Measures what one record for the journal costs the thread that logs it, and prints one line of JSON:
//
//     read MILLISECONDS       into a socket that the same thread empties between two bursts, outside of what is
//     measured journald MILLISECONDS   into a systemd-journald, which is woken up by them
//
// Both in a private system, where the socket has the journal's path.
#include "../../tests/support/datagram_service.hpp"
#include "../../tests/support/private_system.hpp"
#include "../../tests/support/real_service.hpp"
#include "../clock.hpp"
#include "../peer.hpp"
#include "../samples.hpp"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

namespace {

constexpr char kSocket[] = "/run/systemd/journal/socket";
constexpr std::size_t kWord = 12;
constexpr std::size_t kBurst = 8; // what a socket always takes
constexpr std::size_t kWarmUp = 50;

double cpuNanoseconds() {
    timespec now;
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The time of a record, in each burst. What `takeBurst` does is not measured.
std::vector<double> measure(double milliseconds, const std::function<void()>& takeBurst) {
    const Samples samples(kWord);
    std::vector<double> times;
    const double end = nanosecondsNow() + milliseconds * 1e6;
    while (nanosecondsNow() < end || times.size() < 2 * kWarmUp) {
        const double begin = cpuNanoseconds();
        for (std::size_t i = 0; i < kBurst; ++i) {
            const Samples::Sample& sample = samples.all()[i];
            peer::logMessage(samples.word(), sample.number, sample.fraction);
        }
        times.push_back((cpuNanoseconds() - begin) / kBurst);
        takeBurst();
    }
    times.erase(times.begin(), times.begin() + kWarmUp);
    return times;
}

double measureSocket(double milliseconds) {
    DatagramService service(kSocket);
    peer::start();
    return median(measure(milliseconds, [&service] {
        const std::size_t count = service.sent().size();
        if (count != kBurst) { // whoever loses a message is not measured
            fprintf(stderr, "%s: %zu records arrived instead of %zu\n", peer::kName, count, kBurst);
            std::exit(EXIT_FAILURE);
        }
    }));
}

double measureJournald(double milliseconds) {
    std::filesystem::create_directories("/etc/systemd");
    std::filesystem::create_directories("/run/log/journal");
    std::ofstream("/etc/machine-id") << "0123456789abcdef0123456789abcdef\n";
    std::ofstream("/etc/systemd/journald.conf")
        << "[Journal]\nStorage=volatile\nRateLimitIntervalSec=0\nReadKMsg=no\nAudit=\n";
    RealService service({"/lib/systemd/systemd-journald"}, "/run/journald.output");
    service.start(kSocket);
    peer::start();
    return median(measure(milliseconds, [] {
        const timespec time = {0, 2000000}; // enough for it to go to sleep again
        nanosleep(&time, nullptr);
    }));
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    if (words.size() != 2 || (words[0] != "read" && words[0] != "journald")) {
        fprintf(stderr, "usage: read|journald MILLISECONDS\n");
        return EXIT_FAILURE;
    }
    enterPrivateSystem();
    std::filesystem::create_directories("/run/systemd/journal");
    const double milliseconds = std::stod(words[1]);
    const double cpu = words[0] == "read" ? measureSocket(milliseconds) : measureJournald(milliseconds);
    printf("{\"cpu\": %.2f}\n", cpu);
    return EXIT_SUCCESS;
}
