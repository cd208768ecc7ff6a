// What has arrived in the sink of a peer. All sinks do this and nothing else, so what remains is each library's own
// cost.
#ifndef SORREL_BENCH_TALLY_HPP
#define SORREL_BENCH_TALLY_HPP

#include <cstddef>
#include <string>

// Not locked: every peer calls its sink one thread at a time.
struct Tally {
    unsigned long messages = 0;
    unsigned long bytes = 0;
    bool keepsText = false;
    std::string text; // while it is kept, one line for each message

    void take(const char* received, std::size_t length) {
        ++messages;
        bytes += length;
        if (keepsText) {
            text.append(received, length);
            text += '\n';
        }
    }
};

// The one of the program, which a plug-in finds, too.
extern "C" __attribute__((visibility("default"))) Tally sorrelBenchTally;

#endif // SORREL_BENCH_TALLY_HPP
