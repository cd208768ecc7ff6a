// One way to write a line for each message into a file. Each program is built from lines_main.cpp and one of these.
#ifndef SORREL_BENCH_LINE_PEER_HPP
#define SORREL_BENCH_LINE_PEER_HPP

#include <string>

namespace linePeer {

// Writes into a file of this name: "buffered" flushes what is an error, "always" flushes every line; what else there is
// depends on the peer. Returns false for a way that it does not know.
bool start(const std::string& way, const std::string& path);

// Logs "%s %d %f", or what gives the same text, as information.
void logMessage(const char* word, int number, double fraction);

// Logs an error, which all ways write at once.
void logError();

} // namespace linePeer

#endif // SORREL_BENCH_LINE_PEER_HPP
