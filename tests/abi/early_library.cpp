// A library that logs while it is loaded.
#include <sorrel/sorrel.h>

extern "C" __attribute__((visibility("default"))) sorrel_component* earlyComponent();

namespace {

sorrel_component* logAtOnce() {
    sorrel_component* const component = sorrel_create_component("early", SR_INFO, "64=INFO");
    _sorrel(component, SR_INFO, "from a static constructor");
    return component;
}

sorrel_component* const component = logAtOnce();

} // namespace

sorrel_component* earlyComponent() {
    return component;
}
