// The straight line of everything that has to happen, without any library.
#include "message_floor.hpp"
#include "peer.hpp"
#include "tally_target.hpp"

namespace {

TallyTarget target;
MessageFloor messageFloor(target);
sorrel_component component{"bench", 0x40, {}};

} // namespace

const char* const peer::kName = "floor";

void peer::start() {}

void peer::logMessage(const char* word, int number, double fraction) {
    messageFloor.log(&component, SR_INFO, "%s %d %f", word, number, fraction);
}

void peer::finish() {}
