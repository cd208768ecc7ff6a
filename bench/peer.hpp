// One way to log. Each program of the comparison is built from a measuring loop and one file of bench/peers.
#ifndef SORREL_BENCH_PEER_HPP
#define SORREL_BENCH_PEER_HPP

#include <cstddef>

namespace peer {

extern const char* const kName;

// Sets up the library with one sink, which hands each text to the tally.
void start();

// Logs "%s %d %f", or what gives the same text, at a level that passes.
void logMessage(const char* word, int number, double fraction);

// Logs a hex dump: with offsets and characters, 16 bytes a line; or as it comes, where that is less. Only peers that
// have such a thing define it.
void logDump(const unsigned char* data, unsigned int size, bool withCharacters);

// Returns when the tally has all that was logged.
void finish();

} // namespace peer

#endif // SORREL_BENCH_PEER_HPP
