// Logs one message and prints the time then, in nanoseconds, for the launcher, who set up the configuration.
#include "clock.hpp"
#include "peer.hpp"
#include "tally.hpp"

#include <cstdio>
#include <cstdlib>

Tally sorrelBenchTally;

int main() {
    peer::start();
    peer::logMessage("first", 1, 0.5);
    const double now = nanosecondsNow();
    peer::finish();
    printf("%.0f\n", now);
    return sorrelBenchTally.messages == 1 ? EXIT_SUCCESS : EXIT_FAILURE;
}
