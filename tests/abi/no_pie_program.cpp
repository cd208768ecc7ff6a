// A program at a fixed address owns copies of the library's data, and the library must use these copies. Returns 0 when
// they hold what the library put there.
#include <sorrel/log_target.hpp>
#include <sorrel/logger.hpp>

int main() {
    const bool named = sorrel::ILogTarget::LOG_TARGET_CLASS_NAME == "LogTarget";
    const bool fallback =
        CSorrel::ms_OOMFallbackComp.name == "OOM-Ohno!" && CSorrel::ms_OOMFallbackComp.mask == 0xffffffffU;
    const bool levels = SR_ALL != nullptr && SR_ALL->numeric == 32;
    CSorrel::getInstance()->createComponent("no-pie", SR_INFO, "");
    return named && fallback && levels ? 0 : 1;
}
