// Measures what a line in a file costs the process: lines_main WAY LINES FILE prints nanoseconds of processor time for
// each, as one line of JSON. The file is removed again.
#include "../samples.hpp"
#include "line_peer.hpp"

#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <fstream>
#include <string>

namespace {

double processorNanoseconds() {
    timespec now;
    clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

void logLines(const Samples& samples, long count) {
    for (long done = 0; done < count; done += Samples::kCount) {
        for (const Samples::Sample& sample : samples.all()) {
            linePeer::logMessage(samples.word(), sample.number, sample.fraction);
        }
    }
}

long linesOf(const std::string& path) {
    std::ifstream file(path);
    long count = 0;
    for (std::string line; std::getline(file, line);) {
        ++count;
    }
    return count;
}

} // namespace

int main(int argc, char** argv) {
    constexpr long kWarmUp = 10 * Samples::kCount;
    const std::string way = argc == 4 ? argv[1] : "";
    const long count = argc == 4 ? std::atol(argv[2]) / Samples::kCount * Samples::kCount : 0;
    const std::string path = argc == 4 ? argv[3] : "";
    if (count <= 0 || !linePeer::start(way, path)) {
        fprintf(stderr, "usage: WAY LINES FILE\n");
        return EXIT_FAILURE;
    }
    constexpr std::size_t kUsualWord = 12;
    const Samples samples(kUsualWord);
    logLines(samples, kWarmUp);
    const double begin = processorNanoseconds();
    logLines(samples, count);
    linePeer::logError();
    const double end = processorNanoseconds();
    const long written = linesOf(path);
    std::remove(path.c_str());
    if (written != kWarmUp + count + 1) {
        fprintf(stderr, "%ld lines were written instead of %ld\n", written, kWarmUp + count + 1);
        return EXIT_FAILURE;
    }
    printf("{\"cpu\": %.2f}\n", (end - begin) / static_cast<double>(count));
    return EXIT_SUCCESS;
}
