// The null target as a plug-in.
#include "null_target.hpp"

#include <sorrel/target_library.hpp>

SORREL_TARGET_LIBRARY(NullTarget, "null")
