// The `component` lines of the configuration: a name, and its level mask in binary digits.
#include <sorrel/log_target_container.hpp>
#include <sorrel/tangle_log.h>

#include "core/text_split.hpp"

#include <algorithm>
#include <cctype>
#include <syslog.h>
#include <vector>

namespace sorrel {

int CLogTargetContainer::onCfgParamComponent(const std::string& /*key*/, const std::string& value) {
    const std::vector<std::string> pieces = splitAt(value, ",");
    if (pieces.size() != 2 || m_updateSink == nullptr) {
        return 0;
    }
    sorrel_tangleLog(LOG_DEBUG, "Modifying component \"%s\": new level=\"%s\"", pieces[0].c_str(), pieces[1].c_str());
    const std::string name = trimmed(pieces[0]);
    std::string level = trimmed(pieces[1]);
    const auto isSpace = [](unsigned char character) { return std::isspace(character) != 0; };
    level.erase(std::remove_if(level.begin(), level.end(), isSpace), level.end());
    if (m_updateSink->updateComponentLevel(name, level) != 0) {
        // Deliberate: the name stands where the text says level, and the level where it says component.
        sorrel_tangleLog(LOG_DEBUG, "Unable to set level \"%s\" for component \"%s\"", name.c_str(), level.c_str());
    }
    return 0;
}

} // namespace sorrel
