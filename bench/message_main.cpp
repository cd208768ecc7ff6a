// Measures one peer and prints one line of JSON:
//
//     texts                               the texts as they arrive, one a line
//     batches THREADS MILLISECONDS WORD   time of a message with a word of this length
//     calls COUNT                         distribution of single calls, from so many batches
#include "clock.hpp"
#include "peer.hpp"
#include "samples.hpp"
#include "tally.hpp"

#include <atomic>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <thread>

Tally sorrelBenchTally;

namespace {

constexpr std::size_t kUsualWord = 12;
constexpr double kWarmUp = 2; // milliseconds
constexpr double kMostBatchesInAMillisecond = 500;

void logBatch(const Samples& samples) {
    for (const Samples::Sample& sample : samples.all()) {
        peer::logMessage(samples.word(), sample.number, sample.fraction);
    }
}

// Whoever loses a message, or changes its length, is not measured.
void checkTally(const Samples& samples, unsigned long batches) {
    peer::finish();
    const unsigned long messages = batches * Samples::kCount;
    const unsigned long bytes = batches * samples.bytes();
    if (sorrelBenchTally.messages != messages || sorrelBenchTally.bytes != bytes) {
        fprintf(stderr, "%s: %lu messages of %lu bytes arrived instead of %lu of %lu\n", peer::kName,
                sorrelBenchTally.messages, sorrelBenchTally.bytes, messages, bytes);
        std::exit(EXIT_FAILURE);
    }
}

int printTexts() {
    const Samples samples(kUsualWord);
    sorrelBenchTally.keepsText = true;
    logBatch(samples);
    checkTally(samples, 1);
    fputs(sorrelBenchTally.text.c_str(), stdout);
    return EXIT_SUCCESS;
}

// Times of the batches of one thread, each for one message. Goes on until the time is over.
std::vector<double> timeBatches(const Samples& samples, double milliseconds) {
    std::vector<double> times;
    times.reserve(static_cast<std::size_t>(milliseconds * kMostBatchesInAMillisecond));
    const double end = nanosecondsNow() + milliseconds * 1e6;
    double begin = nanosecondsNow();
    do {
        logBatch(samples);
        const double now = nanosecondsNow();
        times.push_back((now - begin) / Samples::kCount);
        begin = now;
    } while (begin < end);
    return times;
}

// All threads begin together. Returns the time from then until the last one has ended.
double runThreads(std::vector<std::vector<double>>& times, const Samples& samples, double milliseconds) {
    std::atomic<std::size_t> ready{0};
    std::atomic<bool> go{false};
    std::vector<std::thread> threads;
    threads.reserve(times.size());
    for (std::vector<double>& ofThread : times) {
        threads.emplace_back([&] {
            logBatch(samples);
            ++ready;
            while (!go) {
                std::this_thread::yield();
            }
            ofThread = timeBatches(samples, milliseconds);
        });
    }
    while (ready < times.size()) {
        std::this_thread::yield();
    }
    const double begin = nanosecondsNow();
    go = true;
    for (std::thread& thread : threads) {
        thread.join();
    }
    return nanosecondsNow() - begin;
}

int measureBatches(std::size_t threadCount, double milliseconds, std::size_t wordLength) {
    const Samples samples(wordLength);
    std::vector<std::vector<double>> times(threadCount);
    const double wall = runThreads(times, samples, milliseconds);
    std::vector<double> all;
    for (const std::vector<double>& ofThread : times) {
        all.insert(all.end(), ofThread.begin(), ofThread.end());
    }
    checkTally(samples, all.size() + threadCount);
    printf("{\"p50\": %.2f, \"wall\": %.2f}\n", median(all),
           wall / (static_cast<double>(all.size()) * Samples::kCount));
    return EXIT_SUCCESS;
}

// What the two readings of the clock cost by themselves.
double costOfTheClock() {
    std::vector<double> times;
    for (int i = 0; i < 10000; ++i) {
        const double begin = nanosecondsNow();
        times.push_back(nanosecondsNow() - begin);
    }
    return median(times);
}

int measureCalls(std::size_t count) {
    const Samples samples(kUsualWord);
    const std::size_t warmUp = timeBatches(samples, kWarmUp).size();
    const double clockCost = costOfTheClock();
    std::vector<double> times;
    times.reserve(count * Samples::kCount);
    for (std::size_t i = 0; i < count; ++i) {
        for (const Samples::Sample& sample : samples.all()) {
            const double begin = nanosecondsNow();
            peer::logMessage(samples.word(), sample.number, sample.fraction);
            times.push_back(nanosecondsNow() - begin - clockCost);
        }
    }
    checkTally(samples, count + warmUp);
    std::sort(times.begin(), times.end());
    printf("{\"clock\": %.0f, \"quantiles\": {", clockCost);
    const char* separator = "";
    for (const double share : {0.01, 0.1, 0.25, 0.5, 0.75, 0.9, 0.95, 0.99, 0.995, 0.999, 0.9995, 0.9999}) {
        printf("%s\"%g\": %.0f", separator, share, quantile(times, share));
        separator = ", ";
    }
    printf("}}\n");
    return EXIT_SUCCESS;
}

int usage() {
    fprintf(stderr, "usage: texts | batches THREADS MILLISECONDS WORD | calls COUNT\n");
    return EXIT_FAILURE;
}

} // namespace

int main(int argc, char** argv) {
    const std::vector<std::string> words(argv + 1, argv + argc);
    peer::start();
    if (words.size() == 1 && words[0] == "texts") {
        return printTexts();
    }
    if (words.size() == 4 && words[0] == "batches") {
        return measureBatches(std::stoul(words[1]), std::stod(words[2]), std::stoul(words[3]));
    }
    if (words.size() == 2 && words[0] == "calls") {
        return measureCalls(std::stoul(words[1]));
    }
    return usage();
}
