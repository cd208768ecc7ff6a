// Logs "constructed" with the component "net" while it is being loaded. Not a target.
#include <sorrel/sorrel.h>

namespace {

struct StaticLogger {
    StaticLogger() { _sorrel(sorrel::sorrel_get_component_by_name("net"), SR_INFO, "constructed"); }
};

StaticLogger staticLogger;

} // namespace
