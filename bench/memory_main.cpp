// Prints what is resident, in KiB, while so many threads are alive that have logged: sorrel_bench_memory_PEER THREADS
#include "peer.hpp"
#include "tally.hpp"

#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

Tally sorrelBenchTally;

namespace {

std::mutex mutex;
std::condition_variable changed;
std::size_t logged = 0; // guarded by the mutex, and so is `over`
bool over = false;

void logOnceAndStay() {
    peer::logMessage("message", 1, 0.5);
    std::unique_lock<std::mutex> lock(mutex);
    ++logged;
    changed.notify_all();
    changed.wait(lock, [] { return over; });
}

long kilobytesOf(const std::string& field) {
    std::ifstream summary("/proc/self/smaps_rollup");
    for (std::string line; std::getline(summary, line);) {
        if (line.compare(0, field.size(), field) == 0) {
            return std::stol(line.substr(field.size()));
        }
    }
    fprintf(stderr, "no %s in /proc/self/smaps_rollup\n", field.c_str());
    std::exit(EXIT_FAILURE);
}

} // namespace

// The main thread counts, too.
int main(int argc, char** argv) {
    const std::size_t threadCount = argc > 1 ? std::stoul(argv[1]) : 1;
    peer::start();
    peer::logMessage("message", 1, 0.5);
    std::vector<std::thread> threads;
    for (std::size_t i = 1; i < threadCount; ++i) {
        threads.emplace_back(logOnceAndStay);
    }
    std::unique_lock<std::mutex> lock(mutex);
    changed.wait(lock, [threadCount] { return logged + 1 == threadCount; });
    printf("{\"resident\": %ld, \"private_dirty\": %ld, \"messages\": %lu}\n", kilobytesOf("Rss:"),
           kilobytesOf("Private_Dirty:"), sorrelBenchTally.messages);
    over = true;
    changed.notify_all();
    lock.unlock();
    for (std::thread& thread : threads) {
        thread.join();
    }
    return EXIT_SUCCESS;
}
