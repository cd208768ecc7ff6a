// The target that counts, as a plug-in. Its tally is the one of the program.
#include "tally_target.hpp"

#include <sorrel/target_library.hpp>

SORREL_TARGET_LIBRARY(TallyTarget, "tally")
