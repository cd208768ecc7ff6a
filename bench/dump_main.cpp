// Measures hex dumps of 64 KiB by one peer, and prints one line of JSON: sorrel_bench_dump_PEER MILLISECONDS
// characters|plain
#include "clock.hpp"
#include "peer.hpp"
#include "tally.hpp"

#include <cstdio>
#include <cstdlib>
#include <string>

Tally sorrelBenchTally;

namespace {

constexpr unsigned int kSize = 64 * 1024;
constexpr unsigned long kLeastText = kSize * 3UL; // two digits and a space for each byte

std::vector<unsigned char> allKindsOfBytes() {
    std::vector<unsigned char> data;
    for (unsigned int i = 0; i < kSize; ++i) {
        data.push_back(static_cast<unsigned char>(i * 7 + i / 256));
    }
    return data;
}

} // namespace

int main(int argc, char** argv) {
    if (argc != 3) {
        fprintf(stderr, "usage: MILLISECONDS characters|plain\n");
        return EXIT_FAILURE;
    }
    const double milliseconds = std::stod(argv[1]);
    const bool withCharacters = std::string(argv[2]) == "characters";
    const std::vector<unsigned char> data = allKindsOfBytes();
    peer::start();
    peer::logDump(data.data(), kSize, withCharacters);
    std::vector<double> times;
    const double end = nanosecondsNow() + milliseconds * 1e6;
    do {
        const double begin = nanosecondsNow();
        peer::logDump(data.data(), kSize, withCharacters);
        times.push_back(nanosecondsNow() - begin);
    } while (nanosecondsNow() < end);
    peer::finish();
    if (sorrelBenchTally.bytes < (times.size() + 1) * kLeastText) {
        fprintf(stderr, "%s: dumps of %lu bytes are too short\n", peer::kName, sorrelBenchTally.bytes);
        return EXIT_FAILURE;
    }
    printf("{\"p50\": %.0f}\n", median(times));
    return EXIT_SUCCESS;
}
