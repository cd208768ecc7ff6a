// The parameter "wait" of all targets that may have to wait for others.
#ifndef SORREL_TARGETS_WAIT_PARAMETER_HPP
#define SORREL_TARGETS_WAIT_PARAMETER_HPP

#include <sorrel/target_parameters.hpp>

namespace {

// In milliseconds.
inline int waitFrom(sorrel::TargetParameters& parameters) {
    return parameters.number("wait", 10, 0, 60000);
}

} // namespace

#endif // SORREL_TARGETS_WAIT_PARAMETER_HPP
